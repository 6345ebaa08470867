// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/completion.h"

#include <algorithm>
#include <vector>

#include "apps/kvfob/cli/command_line.h"

namespace kvfob {
namespace {

using WordList = std::vector<std::string>;

// What may follow an option or be given as a positional.
enum class Kind { Nothing, Words, File, Tag, Other };

struct Argument {
  std::string name;  // "--radio", or that of a positional
  std::string help;
  Kind kind = Kind::Other;
  WordList words;
};

struct Command {
  std::string name;
  std::string help;
  std::vector<Argument> options;
  std::vector<Argument> positionals;
};

WordList split(const std::string& text, char separator) {
  WordList words(1);
  for (const char c : text) {
    if (c == separator) {
      words.emplace_back();
    } else {
      words.back() += c;
    }
  }
  return words;
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
  return text;
}

// For between single quotes of a shell.
std::string shellWord(const std::string& text) {
  std::string result = "'";
  return result.append(replaced(text, "'", "'\\''")).append("'");
}

std::string joined(const WordList& words, const std::string& separator) {
  std::string text;
  for (const auto& word : words) text.append(text.empty() ? "" : separator).append(word);
  return text;
}

Argument argumentOf(const CLI::App& app, const CLI::Option& option) {
  Argument argument;
  argument.name =
      option.get_positional() ? option.get_single_name() : "--" + option.get_lnames().front();
  argument.help = option.get_description();
  const auto type = option.get_type_name();
  if (option.get_expected_max() == 0) {
    argument.kind = Kind::Nothing;
  } else if (type.find('|') != std::string::npos) {
    argument.kind = Kind::Words;
    argument.words = split(type, '|');
  } else if (type == "FILE" || argument.name == "FILE") {
    argument.kind = Kind::File;
  } else if (argument.name == "COMMAND") {
    argument.kind = Kind::Words;
    for (const auto* sub : commandsOf(*app.get_parent())) argument.words.push_back(sub->get_name());
  } else if (argument.name == "TAG" && app.get_name() != "bind") {
    // What is bound anew is not among those that were bound.
    argument.kind = Kind::Tag;
  }
  return argument;
}

Command commandOf(const CLI::App& app) {
  Command command;
  command.name = app.get_name();
  command.help = app.get_description();
  for (const auto* option : app.get_options()) {
    if (isHidden(*option)) continue;
    auto& list = option->get_positional() ? command.positionals : command.options;
    list.push_back(argumentOf(app, *option));
  }
  return command;
}

std::vector<Command> describedCommands(const CLI::App& app) {
  std::vector<Command> commands;
  for (const auto* sub : commandsOf(app)) commands.push_back(commandOf(*sub));
  return commands;
}

WordList namesOf(const std::vector<Argument>& options) {
  WordList names;
  for (const auto& option : options) names.push_back(option.name);
  return names;
}

// The lines of a bash `case` on the word before: what completes the value of each option.
std::string bashValues(std::vector<Argument> options) {
  std::string text;
  std::sort(options.begin(), options.end(),
            [](const auto& a, const auto& b) { return a.name < b.name; });
  const auto last = std::unique(options.begin(), options.end(),
                                [](const auto& a, const auto& b) { return a.name == b.name; });
  for (auto option = options.begin(); option != last; ++option) {
    if (option->kind == Kind::Nothing) continue;
    text += "    " + option->name + ") ";
    if (option->kind == Kind::Words) text += "words=$'" + joined(option->words, "\\n") + "' ;;\n";
    if (option->kind == Kind::File) {
      text += "mapfile -t COMPREPLY < <(compgen -f -- \"$word\"); return ;;\n";
    }
    if (option->kind == Kind::Other) text += "return ;;\n";
  }
  return text;
}

std::string bashCommand(const Command& command) {
  WordList words = namesOf(command.options);
  std::string more;
  for (const auto& positional : command.positionals) {
    if (positional.kind == Kind::Words) {
      words.insert(words.end(), positional.words.begin(), positional.words.end());
    }
    if (positional.kind == Kind::Tag) {
      more += "\"$(kvfob \"${chosen[@]}\" list --names 2>/dev/null)\"";
    }
    if (positional.kind == Kind::File) more += "\"$(compgen -f -- \"$word\")\"";
  }
  return "      " + command.name + ") words=$'" + joined(words, "\\n") +
         (more.empty() ? "' ;;\n" : "\\n'" + more + " ;;\n");
}

std::string bashScript(const Command& common, const std::vector<Command>& commands) {
  auto all = common.options;
  WordList names;
  std::string cases;
  for (const auto& command : commands) {
    all.insert(all.end(), command.options.begin(), command.options.end());
    names.push_back(command.name);
    cases += bashCommand(command);
  }
  WordList first = names;
  for (const auto& name : namesOf(common.options)) first.push_back(name);
  return "# bash completion for kvfob\n"
         "_kvfob() {\n"
         "  local word=${COMP_WORDS[COMP_CWORD]} command='' words='' chosen=() i value\n"
         "  for ((i = 1; i < COMP_CWORD; ++i)); do\n"
         "    case ${COMP_WORDS[i]} in\n"
         // These have a say in which tags there are. Bash takes = for a word of its own.
         "    --radio | --config)\n"
         "      value=$((i + 1))\n"
         "      if [[ ${COMP_WORDS[value]} == = ]]; then value=$((i + 2)); fi\n"
         "      chosen+=(\"${COMP_WORDS[i]}\" \"${COMP_WORDS[value]}\") ;;\n"
         "    --*) ;;\n"
         "    " +
         joined(names, " | ") +
         ") command=${command:-${COMP_WORDS[i]}} ;;\n"
         "    esac\n"
         "  done\n"
         "  case ${COMP_WORDS[COMP_CWORD - 1]} in\n" +
         bashValues(all) +
         "    *) case $command in\n"
         "      '') words=$'" +
         joined(first, "\\n") + "' ;;\n" + cases +
         "    esac ;;\n"
         "  esac\n"
         // Not by compgen, which would expand what a name holds.
         "  mapfile -t words <<<\"$words\"\n"
         "  for i in \"${words[@]}\"; do\n"
         "    if [[ -n $i && $i == \"$word\"* ]]; then COMPREPLY+=(\"$(printf %q \"$i\")\"); fi\n"
         "  done\n"
         "}\n"
         "complete -F _kvfob kvfob\n";
}

// One argument of zsh's _arguments; a positional has its number.
std::string zshArgument(const Argument& argument, const std::string& number) {
  const auto help = replaced(replaced(argument.help, "]", "\\]"), ":", "\\:");
  const auto* value = argument.kind == Kind::Nothing ? "[" : "=[";
  std::string text = number.empty() ? argument.name + value + help + "]" : number;
  if (argument.kind == Kind::Nothing) return shellWord(text);
  text += ":" + argument.name + ":";
  if (argument.kind == Kind::Words) text += "(" + joined(argument.words, " ") + ")";
  if (argument.kind == Kind::File) text += "_files";
  if (argument.kind == Kind::Tag) text += "_kvfob_tags";
  return shellWord(text);
}

std::string zshArguments(const Command& command, const std::string& indent) {
  std::string text;
  for (const auto& option : command.options) text += " \\\n" + indent + zshArgument(option, "");
  int number = 0;
  for (const auto& argument : command.positionals) {
    text += " \\\n" + indent + zshArgument(argument, std::to_string(++number));
  }
  return text;
}

std::string zshScript(const Command& common, const std::vector<Command>& commands) {
  std::string described;
  std::string cases;
  for (const auto& command : commands) {
    described +=
        "      " + shellWord(command.name + ":" + replaced(command.help, ":", "\\:")) + "\n";
    cases += "      " + command.name + ")\n        _arguments" +
             zshArguments(command, "          ") + " ;;\n";
  }
  return "#compdef kvfob\n"
         "_kvfob_tags() {\n"
         "  local -a chosen tags\n"
         "  local option at\n"
         "  for option in --radio --config; do\n"
         "    at=$words[(i)$option]\n"
         "    if [[ -n $words[(r)$option=*] ]]; then\n"
         "      chosen+=($words[(r)$option=*])\n"
         "    elif ((at < CURRENT)); then\n"
         "      chosen+=($option \"$words[at+1]\")\n"
         "    elif [[ -n $before[$option] ]]; then\n"
         "      chosen+=($option \"$before[$option]\")\n"
         "    fi\n"
         "  done\n"
         "  tags=(\"${(@f)$(kvfob $chosen list --names 2>/dev/null)}\")\n"
         "  compadd -a tags\n"
         "}\n"
         "_kvfob() {\n"
         "  local context state line\n"
         "  typeset -A opt_args before\n"
         "  _arguments -C" +
         zshArguments(common, "    ") +
         " \\\n    '(-)1:command:->command' '(-)*::argument:->argument'\n"
         "  before=(\"${(@kv)opt_args}\")\n"
         "  case $state in\n"
         "  command)\n"
         "    local -a commands\n"
         "    commands=(\n" +
         described +
         "    )\n"
         "    _describe command commands ;;\n"
         "  argument)\n"
         "    case $line[1] in\n" +
         cases +
         "    esac ;;\n"
         "  esac\n"
         "}\n"
         "_kvfob \"$@\"\n";
}

std::string fishArgument(const Argument& argument, const std::string& condition) {
  std::string text = "complete -c kvfob -n " + shellWord(condition);
  if (argument.name.starts_with("--")) {
    text += " -l " + argument.name.substr(2) + " -d " + shellWord(argument.help);
    if (argument.kind != Kind::Nothing) text += " -r";
  }
  if (argument.kind == Kind::Words) text += " -f -a " + shellWord(joined(argument.words, " "));
  if (argument.kind == Kind::Tag) text += " -f -a '(__kvfob_tags)'";
  if (argument.kind == Kind::File) text += " -F";
  return text + "\n";
}

std::string fishScript(const Command& common, const std::vector<Command>& commands) {
  std::string text =
      "# fish completion for kvfob\n"
      "function __kvfob_tags\n"
      "  set -l words (commandline -opc)\n"
      "  set -l chosen\n"
      "  for i in (seq (count $words))\n"
      "    switch $words[$i]\n"
      "      case --radio --config\n"
      "        set chosen $chosen $words[$i] $words[(math $i + 1)]\n"
      "      case '--radio=*' '--config=*'\n"
      "        set chosen $chosen $words[$i]\n"
      "    end\n"
      "  end\n"
      "  kvfob $chosen list --names 2>/dev/null\n"
      "end\n"
      "complete -c kvfob -f\n";
  WordList names;
  for (const auto& command : commands) names.push_back(command.name);
  // Fish's own test for this takes the value of an option for a command.
  const auto none = "not __fish_seen_subcommand_from " + joined(names, " ");
  for (const auto& option : common.options) text += fishArgument(option, none);
  for (const auto& command : commands) {
    text += "complete -c kvfob -n " + shellWord(none) + " -a " + command.name + " -d " +
            shellWord(command.help) + "\n";
    const auto seen = "__fish_seen_subcommand_from " + command.name;
    for (const auto& option : command.options) text += fishArgument(option, seen);
    for (const auto& positional : command.positionals) text += fishArgument(positional, seen);
  }
  return text;
}

}  // namespace

std::string completionScript(const CLI::App& app, Shell shell) {
  const auto common = commandOf(app);
  const auto commands = describedCommands(app);
  switch (shell) {
    case Shell::Zsh:
      return zshScript(common, commands);
    case Shell::Fish:
      return fishScript(common, commands);
    case Shell::Bash:
      break;
  }
  return bashScript(common, commands);
}

}  // namespace kvfob

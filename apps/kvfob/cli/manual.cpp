// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/manual.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include "apps/kvfob/cli/command_line.h"
#include "apps/kvfob/cli/help.h"

namespace kvfob {
namespace {

// As text that the formatter leaves alone.
std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    if (c == '\\') {
      result += "\\e";
    } else if (c == '-') {
      result += "\\-";
    } else {
      result += c;
    }
  }
  if (!result.empty() && (result.front() == '.' || result.front() == '\'')) result.insert(0, "\\&");
  return result;
}

std::string upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

// "--radio bluez|sim", or the name of a positional with its words.
std::string nameOf(const CLI::Option& option) {
  std::string names;
  for (const auto& letter : option.get_snames()) names += "-" + letter + ", ";
  names += option.get_positional() ? option.get_name(/*positional=*/true)
                                   : "--" + option.get_lnames().front();
  std::string text = "\\fB" + escaped(names) + "\\fR";
  if (!option.get_type_name().empty()) text += " \\fI" + escaped(option.get_type_name()) + "\\fR";
  return text;
}

// Whether every command may have it; told once, and named where it acts.
bool isCommon(const CLI::Option& option, const CLI::App& app) {
  return !option.get_positional() &&
         app.get_option_no_throw("--" + option.get_lnames().front()) != nullptr;
}

std::string optionsOf(const CLI::App& app, const CLI::App* without) {
  std::string text;
  std::string common;
  for (const auto* option : app.get_options()) {
    if (isHidden(*option)) continue;
    if (without != nullptr && isCommon(*option, *without)) {
      const auto name = "--" + option->get_lnames().front();
      if (name != "--help") common += (common.empty() ? "" : ", ") + escaped(name);
      continue;
    }
    text += ".TP\n" + nameOf(*option) + "\n" + escaped(option->get_description()) + "\n";
  }
  return common.empty() ? text : text + ".PP\nAlso: " + common + ".\n";
}

std::string commandTexts(const CLI::App& app) {
  std::string text;
  for (const auto* sub : commandsOf(app)) {
    text += ".SS " + sub->get_name();
    for (const auto* option : sub->get_options()) {
      if (!option->get_positional()) continue;
      text += " " + option->get_name(/*positional=*/true) +
              (option->get_expected_max() > 1 ? " ..." : "");
    }
    text += "\n" + escaped(sub->get_description()) + ".\n" + optionsOf(*sub, &app);
    text += ".PP\n.nf\n" + escaped(std::string(examplesOf(sub->get_name()))) + ".fi\n";
  }
  return text;
}

// The help's last part: a line that ends with a colon begins a section, the rest stands as it is.
std::string sectionsOf(const std::string& footer) {
  std::string text;
  bool open = false;
  std::istringstream lines(footer);
  for (std::string line; std::getline(lines, line);) {
    const bool heading = !line.empty() && line.front() != ' ' && line.back() == ':';
    if (!heading && open) {
      text += escaped(line) + "\n";
    } else if (heading) {
      line.pop_back();
      text += std::string(open ? ".fi\n" : "") + ".SH " + upper(line) + "\n.nf\n";
      open = true;
    }
  }
  return open ? text + ".fi\n" : text;
}

}  // namespace

std::string manualPage(const CLI::App& app) {
  return ".TH KVFOB 1 \"\" \"" + versionLine() + "\" \"User Commands\"\n" + ".SH NAME\nkvfob \\- " +
         escaped("find and drive key-finder tags over Bluetooth Low Energy") +
         "\n.SH SYNOPSIS\n.B kvfob\n.RI [ options ] \" command \" [ arguments ]\n" +
         ".SH DESCRIPTION\n" + escaped(app.get_description()) + "\n" + ".SH OPTIONS\n" +
         optionsOf(app, nullptr) + ".SH COMMANDS\n" + commandTexts(app) +
         sectionsOf(std::string(helpFooter()));
}

}  // namespace kvfob

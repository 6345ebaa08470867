// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/usage_error.h"

#include <algorithm>
#include <vector>

#include "apps/kvfob/cli/command_line.h"
#include "apps/kvfob/cli/suggest.h"

namespace kvfob {
namespace {

std::string inQuotes(const std::string& text) { return "\"" + text + "\""; }

Outcome usage(const CLI::App* command, const std::string& what) {
  const auto help = command == nullptr ? "kvfob help" : "kvfob help " + command->get_name();
  return {kUsage, what + " (see " + inQuotes(help) + ")"};
}

Outcome unknownOption(const CLI::App& app, const CLI::App* command, const std::string& word) {
  const auto& owner = command == nullptr ? app : *command;
  const auto name = word.substr(0, word.find('='));
  std::vector<std::string> names;
  for (const auto* option : owner.get_options()) {
    const bool offered = !option->get_positional() && !isHidden(*option);
    if (offered) names.push_back("--" + option->get_lnames().front());
  }
  return usage(command, inQuotes(owner.get_name()) + " has no option " + inQuotes(name) +
                            didYouMean(name, names));
}

// The first word that nothing takes.
std::optional<Outcome> unexpected(const CLI::App& app) {
  auto words = app.remaining(/*recurse=*/true);
  std::erase(words, "--");
  if (words.empty()) return std::nullopt;
  const auto* command = commandGiven(app);
  const auto option = std::find_if(words.begin(), words.end(), [](const std::string& word) {
    return word.size() > 1 && word.front() == '-';
  });
  if (option != words.end()) {
    // Before the command only those of the program stand.
    const auto own = app.remaining();
    const bool before = std::find(own.begin(), own.end(), *option) != own.end();
    return unknownOption(app, before ? nullptr : command, *option);
  }
  if (command == nullptr) return unknownCommand(app, words.front());
  return usage(command, inQuotes(words.front()) + " is one argument too many for " +
                            inQuotes(command->get_name()));
}

// "--for" of a message such as "--for: 1 required TIME missing".
std::optional<Outcome> valueMissing(const CLI::App& app, const std::string& message) {
  const auto name = message.substr(0, message.find(':'));
  const auto* command = commandGiven(app);
  const auto* option = command == nullptr ? nullptr : command->get_option_no_throw(name);
  if (option == nullptr) option = app.get_option_no_throw(name);
  if (option == nullptr) return std::nullopt;
  return usage(command, name + " needs a value: " + option->get_type_name());
}

// Where the radio in force comes from, for those who wonder.
std::string radioReason(const Options& options) {
  const auto setting = std::find_if(options.settings.begin(), options.settings.end(),
                                    [](const auto& each) { return each.name == "radio"; });
  return "the radio is " + setting->value +
         (setting->from == "option" ? "" : " (" + setting->from + ")");
}

}  // namespace

const CLI::App* commandGiven(const CLI::App& app) {
  const auto parsed = app.get_subcommands();
  return parsed.empty() ? nullptr : parsed.front();
}

bool optionGiven(const CLI::App& app, const std::string& name) {
  for (const auto* each : {&app, commandGiven(app)}) {
    const auto* option = each == nullptr ? nullptr : each->get_option_no_throw("--" + name);
    if (option != nullptr && option->count() > 0) return true;
  }
  return false;
}

Outcome usageError(const CLI::App& app, const CLI::ParseError& error) {
  const auto* command = commandGiven(app);
  const std::string message = error.what();
  const auto kind = static_cast<CLI::ExitCodes>(error.get_exit_code());
  // It may be found that something is missing before what stands in its place is.
  if (kind == CLI::ExitCodes::RequiredError || kind == CLI::ExitCodes::ExtrasError) {
    if (auto outcome = unexpected(app)) return *outcome;
    if (command == nullptr) return usage(nullptr, "a command is missing");
  }
  if (kind == CLI::ExitCodes::ArgumentMismatch) {
    if (auto outcome = valueMissing(app, message)) return *outcome;
  }
  return usage(command, message);
}

Outcome unknownCommand(const CLI::App& app, const std::string& name) {
  std::vector<std::string> names;
  for (const auto* sub : commandsOf(app)) names.push_back(sub->get_name());
  return usage(nullptr, "there is no command " + inQuotes(name) + didYouMean(name, names));
}

std::optional<RadioKind> fixedRadio(Command command) {
  if (command == Command::Demo) return RadioKind::Sim;
  if (command == Command::Tag || command == Command::Doctor) return RadioKind::BlueZ;
  return std::nullopt;
}

std::optional<Outcome> misfit(const CLI::App& app, const Options& options) {
  const auto* command = commandGiven(app);
  const auto name = inQuotes(command->get_name());
  for (const auto* option : app.get_options()) {
    auto flag = "--" + option->get_lnames().front();
    if (option->count() > 0 && command->get_option_no_throw(flag) == nullptr) {
      return usage(command, flag.append(" does nothing with ").append(name));
    }
  }
  const auto fixed = fixedRadio(options.command);
  if (fixed && optionGiven(app, "radio") && options.radio != *fixed) {
    return usage(command, name + (*fixed == RadioKind::Sim
                                      ? " has a simulated radio of its own, and uses no other"
                                      : " is of the machine's own radio; leave out --radio"));
  }
  const auto radio = fixed.value_or(options.radio);
  const bool sim = radio == RadioKind::Sim;
  if (sim && optionGiven(app, "adapter")) {
    return usage(command, "--adapter is of bluez, but " + radioReason(options));
  }
  if (!sim && optionGiven(app, "seed")) {
    return usage(command, "--seed is of the simulated radio, but " + radioReason(options));
  }
  if (options.command == Command::Tag && options.adapter.empty()) {
    return usage(command, "--adapter is required");
  }
  return std::nullopt;
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/options.h"

#include <CLI/CLI.hpp>

#include "apps/kvfob/cli/command_line.h"
#include "apps/kvfob/cli/completion.h"
#include "apps/kvfob/cli/help.h"
#include "apps/kvfob/cli/manual.h"
#include "apps/kvfob/cli/settings.h"
#include "apps/kvfob/cli/usage_error.h"

namespace kvfob {
namespace {

// What is printed for a command that only prints; empty for the others.
std::variant<std::string, Outcome> textOf(const CLI::App& app, const Options& options) {
  switch (options.command) {
    case Command::Completion:
      return completionScript(app, options.shell);
    case Command::Manual:
      return manualPage(app);
    case Command::Help:
      break;
    default:
      return std::string();
  }
  if (options.topic.empty()) return helpText(app);
  for (const auto* command : commandsOf(app)) {
    if (command->get_name() == options.topic) return helpText(*command);
  }
  return unknownCommand(app, options.topic);
}

// Whether the command heeds a setting.
bool acts(const CLI::App& command, const std::string& name) {
  const auto* option = command.get_option_no_throw("--" + name);
  return option != nullptr && !isHidden(*option);
}

// Completes what was parsed.
std::optional<Outcome> complete(const CLI::App& app, const std::string& configFile,
                                Options& options) {
  const auto& command = *commandGiven(app);
  options.radioGiven = optionGiven(app, "radio");
  // A command that needs no settings works whatever is wrong with them.
  if (command.get_option_no_throw("--config") != nullptr) {
    const SettingsWanted wanted{
        .file = configFile,
        .given = [&](const std::string& name) { return optionGiven(app, name); },
        .acts = [&](const std::string& name) { return acts(command, name); }};
    if (auto failure = settle(wanted, options)) return failure;
  }
  if (auto failure = misfit(app, options)) return failure;
  options.radio = fixedRadio(options.command).value_or(options.radio);
  return std::nullopt;
}

}  // namespace

std::variant<Options, Outcome> parseOptions(int argc, const char* const* argv,
                                            std::string& printed) {
  Options options;
  std::string configFile;
  const auto app = makeCommandLine(options, configFile);
  // Whoever asks for nothing wants to know what there is, and that is no mistake.
  if (argc < 2) {
    printed = helpText(*app);
    return Outcome();
  }
  try {
    app->parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    const auto* command = commandGiven(*app);
    printed = helpText(command != nullptr ? *command : *app);
    return Outcome();
  } catch (const CLI::CallForVersion&) {
    printed = versionLine() + "\n";
    return Outcome();
  } catch (const CLI::ParseError& error) {
    return usageError(*app, error);
  }
  if (auto failure = complete(*app, configFile, options)) return *failure;
  auto text = textOf(*app, options);
  if (auto* failure = std::get_if<Outcome>(&text)) return std::move(*failure);
  printed = std::move(std::get<std::string>(text));
  if (!printed.empty()) return Outcome();
  return options;
}

}  // namespace kvfob

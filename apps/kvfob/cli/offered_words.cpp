// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/offered_words.h"

#include <CLI/CLI.hpp>
#include <sstream>

#include "apps/kvfob/cli/command_line.h"

namespace kvfob {
namespace {

void addChoices(const CLI::Option& option, std::vector<std::string>& offered) {
  const auto type = option.get_type_name();
  if (type.find('|') == std::string::npos) return;
  std::istringstream choices(type);
  for (std::string choice; std::getline(choices, choice, '|');) offered.push_back(choice);
}

}  // namespace

std::vector<std::string> offeredWords(const std::vector<std::string>& words) {
  Options options;
  std::string configFile;
  const auto app = makeCommandLine(options, configFile);
  std::vector<std::string> offered;
  if (words.size() < 2) {
    for (const auto* each : commandsOf(*app)) offered.push_back(each->get_name());
    offered.emplace_back("quit");
    return offered;
  }
  const auto called =
      app->get_subcommands([&](const CLI::App* each) { return each->get_name() == words.front(); });
  if (called.empty()) return offered;
  const auto* sub = called.front();
  const auto& before = words[words.size() - 2];
  const auto* valued = before.starts_with("--") ? sub->get_option_no_throw(before) : nullptr;
  if (valued != nullptr && valued->get_expected_max() > 0) {
    addChoices(*valued, offered);
    return offered;
  }
  for (const auto* option : sub->get_options()) {
    if (option->get_positional()) {
      addChoices(*option, offered);
    } else if (!isHidden(*option)) {
      offered.push_back("--" + option->get_lnames().front());
    }
  }
  return offered;
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// What is written about the command line tells of all of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <iterator>
#include <sstream>

#include "apps/kvfob/cli/command_line.h"
#include "apps/kvfob/cli/completion.h"
#include "apps/kvfob/cli/help.h"
#include "apps/kvfob/cli/manual.h"
#include "apps/kvfob/cli/settings.h"

namespace kvfob {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;

class DocumentsTest : public ::testing::Test {
 protected:
  // What stands between the first `begin` and the `end` that comes next.
  static std::string part(const std::string& text, const std::string& begin,
                          const std::string& end) {
    const auto from = text.find(begin);
    if (from == std::string::npos) return {};
    return text.substr(from, text.find(end, from + begin.size()) - from);
  }
  static std::string readme() {
    std::ifstream in(KVFOB_README);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static std::vector<std::string> optionsOf(const CLI::App& command) {
    std::vector<std::string> names;
    for (const auto* option : command.get_options()) {
      const bool offered = !option->get_positional() && !isHidden(*option);
      if (offered) names.push_back("--" + option->get_lnames().front());
    }
    return names;
  }

  Options options;
  std::string configFile;
  const std::unique_ptr<CLI::App> app = makeCommandLine(options, configFile);
};

TEST_F(DocumentsTest, EveryCommandAndOptionIsInEachOfThem) {
  const auto manual = manualPage(*app);
  const auto bash = completionScript(*app, ShellKind::Bash);
  const auto zsh = completionScript(*app, ShellKind::Zsh);
  const auto fish = completionScript(*app, ShellKind::Fish);
  for (const auto* command : commandsOf(*app)) {
    const auto& name = command->get_name();
    EXPECT_THAT(helpText(*app), HasSubstr("\n  " + name + " "));
    EXPECT_THAT(readme(), HasSubstr("| `" + name + "` |"));
    EXPECT_THAT(std::string(examplesOf(name)), HasSubstr(name)) << "an example";

    const auto help = helpText(*command);
    const auto page = part(manual, "\n.SS " + name, "\n.S");
    const auto bashPart = part(bash, "\n      " + name + ") ", ";;");
    const auto zshPart = part(zsh, "\n      " + name + ")", ";;");
    EXPECT_THAT(page, HasSubstr(command->get_description().substr(0, 20))) << name;
    for (const auto& option : optionsOf(*command)) {
      const auto escaped = CLI::detail::find_and_replace(option, "-", "\\-");
      EXPECT_THAT(help, HasSubstr(option)) << name;
      EXPECT_TRUE(option == "--help" || page.find(escaped) != std::string::npos) << page;
      EXPECT_THAT(bashPart, HasSubstr(option)) << name;
      EXPECT_THAT(zshPart, HasSubstr(option)) << name;
      EXPECT_THAT(fish, HasSubstr("__fish_seen_subcommand_from " + name + "' -l " +
                                  option.substr(2) + " "));
    }
  }
  for (const auto& option : optionsOf(*app)) {
    EXPECT_THAT(part(manual, "\n.SH OPTIONS", "\n.SH"),
                HasSubstr(CLI::detail::find_and_replace(option, "-", "\\-")));
    EXPECT_THAT(helpText(*app), HasSubstr(option));
    EXPECT_THAT(part(bash, "'') words=", ";;"), HasSubstr(option));
  }
}

TEST_F(DocumentsTest, EveryExitStatusAndSettingIsTold) {
  // Those of exit_code.h, and what three signals make.
  for (int status : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 130, 143, 141}) {
    const auto number = std::to_string(status);
    for (const auto& text : {part(helpText(*app), "\nExit status:", "\n\n"),
                             part(manualPage(*app), ".SH EXIT STATUS", ".SH")}) {
      EXPECT_THAT(text, ContainsRegex("\n  (130, )?" + number + "[ ,]"));
    }
    EXPECT_THAT(readme(), HasSubstr("| " + number + " |"));
  }
  for (const auto& setting : settings()) {
    for (const auto& text : {std::string(helpFooter()), readme()}) {
      EXPECT_THAT(text, HasSubstr(setting.variable));
      EXPECT_THAT(text, HasSubstr("--" + setting.name));
    }
  }
  EXPECT_THAT(manualPage(*app), HasSubstr(".TH KVFOB 1 \"\" \"" + versionLine() + "\""));
}

TEST_F(DocumentsTest, HelpFitsATerminal) {
  std::vector<std::string> texts{helpText(*app)};
  for (const auto* command : commandsOf(*app)) texts.push_back(helpText(*command));
  for (const auto& text : texts) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 96U) << line;
    EXPECT_EQ(text.find(" \n"), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace kvfob

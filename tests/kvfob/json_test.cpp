// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "tests/kvfob/child.h"

namespace kvfob {
namespace {

using Members = std::set<std::string>;

// What stands in the first cell of a table's row, without its backticks; empty for other lines.
std::string firstCell(const std::string& line) {
  if (!line.starts_with("| `")) return {};
  return line.substr(3, line.find('`', 3) - 3);
}

struct Page {
  std::map<std::string, Members> events;  // and the members of each
  Members codes;                          // the code words of errors
};

Page readPage() {
  std::ifstream file(KVFOB_DOCS "/json.md");
  Page page;
  std::string section;
  std::string heading;
  for (std::string line; std::getline(file, line);) {
    const auto cell = firstCell(line);
    if (line.starts_with("## ")) section = line.substr(3);
    if (line.starts_with("| ") && cell.empty()) heading = line.substr(2, line.find(' ', 2) - 2);
    if (!cell.empty() && heading == "member") page.events[section].insert(cell);
    if (!cell.empty() && heading == "code") page.codes.insert(cell);
  }
  return page;
}

// A section for the command alone counts, too; and for results of several commands on tags.
const Members& membersOf(const Page& page, const std::string& command, const std::string& event) {
  static const Members kNone;
  const auto found = page.events.find(command + ": " + event);
  return found == page.events.end() ? kNone : found->second;
}

TEST(JsonTest, ProgramWritesWhatThePageTells) {
  const auto folder = ::testing::TempDir() + "kvfob-json-" + std::to_string(getpid());
  setenv("XDG_STATE_HOME", folder.c_str(), /*overwrite=*/1);
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
  const struct {
    std::string group;
    std::vector<std::string> arguments;
    std::string input = "sesame\n";
  } kCommands[] = {
      {"tags",
       {"bind", "0a1b2c3d4e5f", "--name", "keys", "--save-password", "--password-file", "-",
        "--radio", "sim"}},
      {"tags", {"ring", "keys", "--radio", "sim"}},
      {"tags", {"ring", "nothing", "--radio", "sim"}},
      {"tags", {"watch", "keys", "--for", "8s", "--radio", "sim"}},
      {"scan", {"scan", "--for", "500ms", "--radio", "sim"}},
      {"list", {"list"}},
      {"doctor", {"doctor"}},
      {"config", {"config"}},
      {"decode", {"decode", KVFOB_TEST_DATA "/road.btsnoop"}},
      {"decode", {"decode", "-"}, "a10d64112233445566f4\n"},
      {"decode", {"decode", "/nonexistent"}},
  };
  const auto page = readPage();
  std::map<std::string, Members> written;
  for (auto [group, arguments, input] : kCommands) {
    arguments.emplace_back("--json");
    std::istringstream lines(runProgram(arguments, input).out);
    for (std::string line; std::getline(lines, line);) {
      const auto object = nlohmann::ordered_json::parse(line);
      const std::string event = object.at("event");
      EXPECT_EQ(object.begin().key(), "event");
      const auto& own = membersOf(page, group, event);
      const bool shared = own.empty() || event == "result";
      const auto common = shared ? page.events.find(event) : page.events.end();
      ASSERT_TRUE(!own.empty() || common != page.events.end()) << line;
      for (const auto& [key, value] : object.items()) {
        const bool ofAll = common != page.events.end() && common->second.contains(key);
        EXPECT_TRUE(ofAll || own.contains(key)) << line;
        written[ofAll ? event : group + ": " + event].insert(key);
      }
      if (event == "result" && !object["ok"]) {
        EXPECT_TRUE(page.codes.contains(object["error"]["code"])) << line;
      }
    }
  }
  for (const auto& [event, members] : page.events) {
    // No virtual tag sends the first, and the capture holds no press.
    if (event == "notification" || event == "decode: button") continue;
    EXPECT_EQ(written[event], members) << event;
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace kvfob

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

TEST(JsonTest, ProgramWritesWhatThePageTells) {
  const auto folder = ::testing::TempDir() + "kvfob-json-" + std::to_string(getpid());
  setenv("XDG_STATE_HOME", folder.c_str(), /*overwrite=*/1);
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
  const std::vector<std::string> kCommands[] = {
      {"bind", "0a1b2c3d4e5f", "--name", "keys", "--save-password", "--password-file", "-"},
      {"ring", "keys"},
      {"ring", "nothing"},
      {"watch", "keys", "--for", "8s"},
      {"list"},
      {"scan", "--for", "500ms"},
  };
  const auto page = readPage();
  std::map<std::string, Members> written;
  for (auto arguments : kCommands) {
    arguments.insert(arguments.end(), {"--json", "--radio", "sim"});
    std::istringstream lines(runProgram(arguments, "sesame\n").out);
    for (std::string line; std::getline(lines, line);) {
      const auto object = nlohmann::ordered_json::parse(line);
      const std::string event = object.at("event");
      EXPECT_EQ(object.begin().key(), "event");
      ASSERT_TRUE(page.events.contains(event)) << line;
      for (const auto& [key, value] : object.items()) {
        EXPECT_TRUE(page.events.at(event).contains(key)) << line;
        written[event].insert(key);
      }
      if (event == "result" && !object["ok"]) {
        EXPECT_TRUE(page.codes.contains(object["error"]["code"])) << line;
      }
    }
  }
  for (const auto& [event, members] : page.events) {
    if (event == "notification") continue;  // no virtual tag sends one
    EXPECT_EQ(written[event], members) << event;
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace kvfob

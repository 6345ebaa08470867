// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/options.h"

#include <gtest/gtest.h>

#include <vector>

#include "KVFobLink/KVTrackerTypes.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;

std::variant<Options, Outcome> parse(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "kvfob");
  std::string printed;
  return parseOptions(static_cast<int>(arguments.size()), arguments.data(), printed);
}

TEST(CommandLineTest, ReadsOptions) {
  const auto scan = std::get<Options>(parse({"scan", "--for", "2s", "--json", "--sort", "name"}));
  EXPECT_EQ(scan.command, Command::Scan);
  EXPECT_EQ(scan.radio, RadioKind::BlueZ);
  EXPECT_EQ(scan.duration, 2s);
  EXPECT_TRUE(scan.json);
  EXPECT_EQ(scan.sort, SortBy::Name);

  const auto alert =
      std::get<Options>(parse({"--radio", "sim", "--timeout", "5", "alert", "0A:1B:2C:3D:4E:5F",
                               "on", "--adapter", "hci7", "--color", "never", "--log", "all"}));
  EXPECT_EQ(alert.command, Command::Alert);
  EXPECT_EQ(alert.radio, RadioKind::Sim);
  EXPECT_EQ(alert.tags, std::vector<std::string>{"0A:1B:2C:3D:4E:5F"});
  EXPECT_TRUE(alert.on);
  EXPECT_EQ(alert.adapter, "hci7");
  EXPECT_EQ(alert.timeout, 5s);
  EXPECT_EQ(alert.color, ColorMode::Never);
  EXPECT_EQ(alert.log, LogLevel::All);

  EXPECT_EQ(std::get<Options>(parse({"delay", "0a1b2c3d4e5f", "7000"})).delay, 7000);
  EXPECT_EQ(std::get<Options>(parse({"distance", "0a1b2c3d4e5f", "near"})).level, KVDistanceNear);

  const auto tag = std::get<Options>(parse({"tag", "--adapter", "hci1", "--battery", "80"}));
  EXPECT_EQ(tag.radio, RadioKind::BlueZ);
  EXPECT_EQ(tag.battery, 80);
}

TEST(CommandLineTest, RefusesWrongUsage) {
  const std::vector<std::vector<const char*>> kCases{
      {},
      {"sing"},
      {"ring"},
      {"bind", "0a1b2c3d4e5f", "--name", "0a1b2c3d4e60"},
      {"rename", "keys", "--", "-keys"},
      {"ring", "0a1b2c3d4e5f", "--password", "secret"},
      {"ring", "0a1b2c3d4e5f", "--timeout", "0"},
      {"scan", "--radio", "fm"},
      {"scan", "--for", "soon"},
      {"alert", "0a1b2c3d4e5f", "maybe"},
      {"delay", "0a1b2c3d4e5f", "7001"},
      {"delay", "0a1b2c3d4e5f", "-1"},
      {"distance", "0a1b2c3d4e5f", "away"},
      {"tag"},
      {"tag", "--adapter", "hci0", "--radio", "sim"},
      {"--radio", "sim", "tag", "--adapter", "hci0"},
      {"tag", "--adapter", "hci0", "--model", "256"},
      {"tag", "--adapter", "hci0", "--address", "here"},
  };
  for (const auto& arguments : kCases) {
    const auto parsed = parse(arguments);
    const auto* outcome = std::get_if<Outcome>(&parsed);
    ASSERT_NE(outcome, nullptr) << ::testing::PrintToString(arguments);
    EXPECT_EQ(outcome->code, kUsage) << ::testing::PrintToString(arguments);
    EXPECT_NE(outcome->message, "") << ::testing::PrintToString(arguments);
  }
}

}  // namespace
}  // namespace kvfob

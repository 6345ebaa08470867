// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/listing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KVFobLink/KVTrackerCollections.h"
#include "apps/kvfob/scan/scan_view.h"
#include "apps/kvfob/watch/watch_view.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

std::shared_ptr<KVTracker> trackerAt(const std::string& address, std::int64_t rssi,
                                     std::int64_t battery,
                                     std::chrono::milliseconds lastAdvertised) {
  auto tracker = std::make_shared<KVTracker>();
  tracker->updateData(KVTrackerDataMac, address);
  tracker->updateData(KVTrackerDataRssi, rssi);
  tracker->updateData(KVTrackerDataBattery, battery);
  tracker->updateData(KVTrackerDataModel, battery == 18 ? -1 : std::int64_t{3});
  tracker->updateData(KVTrackerDataRadioTx, std::int64_t{-12});
  tracker->updateData(KVTrackerDataAdvUpdate, KVTracker::Date{} + lastAdvertised);
  return tracker;
}

class ListingTest : public ::testing::Test {
 protected:
  ListingTest() {
    map.set("a", trackerAt("0a1b2c3d4e5f", -68, 92, 1ms));
    map.set("b", trackerAt("0a1b2c3d4e60", 0, 18, 3s));
    map.set("c", trackerAt("0a1b2c3d4e61", -40, 50, 2s));
  }
  std::vector<TagRow> rows(SortBy order) const {
    return rowsOf(
        map.values(),
        [](const std::string& address) -> std::string {
          if (address == "0a1b2c3d4e60") return "caf\u00e9 \u9375";
          return address == "0a1b2c3d4e61" ? "a \"key\"\n" : "";
        },
        order);
  }
  KVTrackerMap map;
};

TEST_F(ListingTest, Orders) {
  const std::pair<SortBy, std::string> kCases[] = {{SortBy::Address, "f01"},
                                                   {SortBy::Rssi, "1f0"},
                                                   {SortBy::Battery, "f10"},
                                                   {SortBy::Name, "10f"},
                                                   {SortBy::Heard, "01f"}};
  for (const auto& [order, last] : kCases) {
    std::string digits;
    for (const auto& row : rows(order)) digits += row.address.back();
    EXPECT_EQ(digits, last) << orderName(order);
  }
}

TEST_F(ListingTest, JsonHasNullForWhatIsNotKnown) {
  map.find("a")->setBound(true);
  std::vector<std::string> lines;
  for (const auto& row : rows(SortBy::Address)) lines.push_back(toJson(row));
  EXPECT_THAT(
      lines,
      ElementsAre(
          R"({"address":"0a1b2c3d4e5f","name":null,"rssi":-68,"battery":92,"tx":-12,"model":3,)"
          R"("distance":"middle","last_heard":"1970-01-01T00:00:00.001Z"})",
          "{\"address\":\"0a1b2c3d4e60\",\"name\":\"caf\u00e9 \u9375\",\"rssi\":null,"
          R"("battery":18,"tx":null,"model":null,"distance":null,)"
          R"("last_heard":"1970-01-01T00:00:03.000Z"})",
          R"({"address":"0a1b2c3d4e61","name":"a \"key\"\u000a","rssi":-40,"battery":50,)"
          R"("tx":null,"model":3,"distance":"near","last_heard":"1970-01-01T00:00:02.000Z"})"));
}

WatchView busyWatch() {
  WatchView view;
  view.name = "caf\u00e9 \u9375 with a name that goes on";
  view.address = "0a1b2c3d4e5f";
  view.rssi = -71;
  for (int i = 0; i < 300; ++i) view.samples.push_back({i * 1s, -40 - i % 60});
  view.elapsed = 300s;
  for (int i = 0; i < 40; ++i) {
    view.events.push_back({.time = "03:32:20.947", .text = std::string(90, 'e')});
  }
  return view;
}

TEST_F(ListingTest, DrawingsFitTheTerminal) {
  ScanView scan{.rows = rows(SortBy::Rssi), .now = KVTracker::Date{} + 5s, .left = 3s};
  for (int i = 0; i < 60; ++i) scan.rows.push_back(scan.rows[static_cast<std::size_t>(i % 3)]);
  scan.note = std::string(200, 'n');
  for (const std::size_t width : {1U, 20U, 40U, 80U, 120U, 250U}) {
    for (const std::size_t height : {1U, 2U, 5U, 24U, 40U}) {
      for (const bool unicode : {true, false}) {
        const Look look{.width = width, .height = height, .unicode = unicode};
        for (const auto& lines : {drawScan(scan, look), drawWatch(busyWatch(), look)}) {
          EXPECT_LE(lines.size(), height);
          for (const auto& line : lines) EXPECT_LE(columnsOf(line), width) << line;
        }
      }
    }
  }
  const auto lines = drawScan(scan, {.width = 80, .height = 10});
  EXPECT_THAT(lines, ::testing::Contains(::testing::HasSubstr("more")));
}

TEST(PlotTest, KnowsNothingBetweenSamplesFarApart) {
  const auto values = strengthBySecond({{0s, -50}, {2s, -60}, {60s, -70}}, 60s, 61);
  ASSERT_EQ(values.size(), 61U);
  EXPECT_EQ(values[0], -50);
  EXPECT_EQ(values[1], -55);
  EXPECT_EQ(values[2], -60);
  EXPECT_EQ(values[30], std::nullopt);
  EXPECT_EQ(values[60], -70);
  for (const auto& [low, high] : {std::pair(-61.0, -59.0), {-127.0, 20.0}, {-70.0, -70.0}}) {
    const auto scale = scaleFor({low, std::nullopt, high});
    EXPECT_TRUE(scale.low <= low && high <= scale.high) << low;
    EXPECT_GE(scale.high - scale.low, 30);
    EXPECT_EQ(scale.low % 10 + scale.high % 10, 0);
  }
}

}  // namespace
}  // namespace kvfob

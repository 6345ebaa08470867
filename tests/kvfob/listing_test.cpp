// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/listing.h"

#include <gtest/gtest.h>

#include "KVFobLink/KVTrackerTypes.h"
#include "apps/kvfob/scan/tag_list.h"
#include "apps/kvfob/scan/tag_stream.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;
using Time = std::chrono::system_clock::time_point;

void tell(KVTracker& tracker, std::int64_t rssi, std::int64_t battery, Time heard) {
  tracker.updateData(KVTrackerDataRssi, rssi);
  tracker.updateData(KVTrackerDataBattery, battery);
  tracker.updateData(KVTrackerDataAdvUpdate, heard);
}

std::shared_ptr<KVTracker> trackerAt(const std::string& address, std::int64_t rssi,
                                     std::int64_t battery, Time heard) {
  auto tracker = std::make_shared<KVTracker>();
  tracker->updateData(KVTrackerDataMac, address);
  tracker->updateData(KVTrackerDataModel, battery == 18 ? -1 : std::int64_t{3});
  tracker->updateData(KVTrackerDataRadioTx, std::int64_t{-12});
  tell(*tracker, rssi, battery, heard);
  return tracker;
}

class ListingTest : public ::testing::Test {
 protected:
  ListingTest() {
    for (const auto& tracker : trackers) list.take(*tracker, 0s);
  }

  // The last digits of what is shown, the selected one in brackets.
  std::string shown(SortBy order, const std::string& filter = {}) {
    list.arrange(order, filter);
    std::string digits;
    for (const auto* tag : list.shown()) {
      const std::string digit(1, tag->row.address.back());
      digits += tag == list.selectedTag() ? "[" + digit + "]" : digit;
    }
    return digits;
  }

  std::map<std::string, std::string> names{{"0a1b2c3d4e60", "caf\u00e9 \u9375"},
                                           {"0a1b2c3d4e61", "a \"Key\"\n"}};
  std::vector<std::shared_ptr<KVTracker>> trackers{trackerAt("0a1b2c3d4e5f", -68, 92, Time{} + 1ms),
                                                   trackerAt("0a1b2c3d4e60", 0, 18, Time{} + 3s),
                                                   trackerAt("0a1b2c3d4e61", -40, 50, Time{} + 2s)};
  TagList list{[this](TagRow& row) {
    row.name = names.contains(row.address) ? names[row.address] : "";
    row.bound = !row.name.empty();
  }};
};

TEST_F(ListingTest, OrdersAndFilters) {
  const struct {
    SortBy order;
    const char* filter;
    const char* digits;
  } kCases[] = {
      {SortBy::Address, "", "[f]01"},    {SortBy::Rssi, "", "[1]f0"},
      {SortBy::Battery, "", "[f]10"},    {SortBy::Name, "", "[1]0f"},
      {SortBy::Heard, "", "[0]1f"},      {SortBy::Address, "E6", "[0]1"},
      {SortBy::Address, "4e:5f", "[f]"}, {SortBy::Address, "KEY", "[1]"},
      {SortBy::Address, "x", ""},
  };
  for (const auto& [order, filter, digits] : kCases) {
    EXPECT_EQ(shown(order, filter), digits) << orderName(order) << filter;
  }
}

TEST_F(ListingTest, SelectionStaysOnTheTag) {
  EXPECT_EQ(shown(SortBy::Address), "[f]01");
  EXPECT_EQ(shown(SortBy::Heard), "[0]1f");  // nothing was chosen yet
  list.move(1);
  EXPECT_EQ(shown(SortBy::Heard), "0[1]f");
  EXPECT_EQ(shown(SortBy::Rssi), "[1]f0");
  EXPECT_EQ(shown(SortBy::Rssi, "4e60"), "[0]");  // it is hidden for now
  EXPECT_EQ(shown(SortBy::Rssi, "nothing"), "");
  list.move(1);
  EXPECT_EQ(list.selectedTag(), nullptr);
  EXPECT_EQ(shown(SortBy::Address), "f0[1]");
  for (const auto& [places, digits] : {std::pair(-1, "f[0]1"), {-5, "[f]01"}, {9, "f0[1]"}}) {
    list.move(places);
    EXPECT_EQ(shown(SortBy::Address), digits);
  }
  list.select(1);
  EXPECT_EQ(shown(SortBy::Address), "f[0]1");
}

TEST_F(ListingTest, TagsAreRememberedWithTheirPast) {
  const std::string address = "0a1b2c3d4e61";
  auto& tracker = *trackers[2];
  for (int i = 1; i <= 4; ++i) {
    tell(tracker, -40 - i, 50, Time{} + 2s + i * 500ms);
    list.take(tracker, i * 500ms);
  }
  list.take(tracker, 9s);  // nothing new
  KVTracker anew;
  anew.updateData(KVTrackerDataMac, address);
  list.take(anew, 9s);
  list.take(KVTracker(), 9s);
  EXPECT_EQ(list.size(), 3U);
  const auto* tag = list.find(address);
  EXPECT_EQ(tag->row.rssi, -44);
  EXPECT_EQ(tag->firstHeard, Time{} + 2s);
  std::string samples;
  for (const auto& [at, dbm] : tag->samples) {
    samples += std::to_string(at.count()) + ":" + std::to_string(dbm) + " ";
  }
  EXPECT_EQ(samples, "0:-40 1000:-42 2000:-44 ");
  names[address] = "renamed";
  list.recall();
  EXPECT_EQ(tag->row.name, "renamed");
  for (int i = 0; i < 400; ++i) {
    tell(tracker, -50, 50, Time{} + 20s + i * 1s);
    list.take(tracker, 20s + i * 1s);
  }
  EXPECT_EQ(tag->samples.size(), 300U);
  EXPECT_EQ(tag->samples.back().at, 419s);
}

TEST_F(ListingTest, JsonHasNullForWhatIsNotKnown) {
  trackers[0]->setBound(true);
  list.take(*trackers[0], 0s);
  const std::pair<const char*, std::string> kCases[] = {
      {"0a1b2c3d4e5f",
       R"("name":null,"rssi":-68,"battery":92,"tx":-12,"model":3,"distance":"middle",)"
       R"("bound":false,"last_heard":"1970-01-01T00:00:00.001Z"})"},
      {"0a1b2c3d4e60",
       "\"name\":\"caf\u00e9 \u9375\",\"rssi\":null,\"battery\":18,\"tx\":null,"
       R"("model":null,"distance":null,"bound":true,"last_heard":"1970-01-01T00:00:03.000Z"})"},
      {"0a1b2c3d4e61",
       R"("name":"a \"Key\"\n","rssi":-40,"battery":50,"tx":null,"model":3,"distance":"near",)"
       R"("bound":true,"last_heard":"1970-01-01T00:00:02.000Z"})"},
  };
  for (const auto& [address, rest] : kCases) {
    const auto line = jsonLine(tagEvent(list.find(address)->row, Time{} + 5s));
    EXPECT_EQ(line, R"({"event":"tag","time":"1970-01-01T00:00:05.000Z","address":")" +
                        std::string(address) + "\"," + rest);
  }
}

TEST(TagStreamTest, TellsWhatIsNews) {
  const TagRow known{.name = "keys",
                     .address = "0a1b2c3d4e5f",
                     .rssi = -60,
                     .level = KVDistanceNear,
                     .battery = 90,
                     .lastAdvertised = Time{} + 10s};
  const auto with = [&](auto change) {
    auto row = known;
    row.lastAdvertised = Time{} + 11s;
    change(row);
    return row;
  };
  const struct {
    const char* what;
    TagRow row;
    std::chrono::milliseconds later;
    bool news;
  } kCases[] = {
      {"nothing", with([](auto&) {}), 5s, false},
      {"a little", with([](auto& row) { row.rssi = -62; }), 5s, false},
      {"3 dB", with([](auto& row) { row.rssi = -63; }), 1s, true},
      {"3 dB up", with([](auto& row) { row.rssi = -57; }), 1s, true},
      {"3 dB too soon", with([](auto& row) { row.rssi = -63; }), 999ms, false},
      {"no signal", with([](auto& row) { row.rssi.reset(); }), 1s, true},
      {"distance", with([](auto& row) { row.level = KVDistanceFar; }), 1s, true},
      {"distance too soon", with([](auto& row) { row.level = KVDistanceFar; }), 999ms, false},
      {"battery", with([](auto& row) { row.battery = 89; }), 1ms, true},
      {"model", with([](auto& row) { row.model = 1; }), 1ms, true},
      {"bound", with([](auto& row) { row.bound = true; }), 1ms, true},
      {"name", with([](auto& row) { row.name = "bag"; }), 1ms, true},
      {"tx", with([](auto& row) { row.tx = 0; }), 1ms, true},
      {"silence", with([](auto& row) { row.lastAdvertised = Time{} + 20s; }), 10s, true},
      {"no silence", with([](auto& row) { row.lastAdvertised = Time{} + 20s - 1ms; }), 10s, false},
  };
  for (const auto& [what, row, later, news] : kCases) {
    TagStream stream;
    EXPECT_TRUE(stream.empty());
    const auto now = 10s;
    EXPECT_TRUE(stream.news(known, now)) << what;
    EXPECT_FALSE(stream.empty());
    EXPECT_EQ(stream.news(row, now + later), news) << what;
    EXPECT_FALSE(stream.news(row, now + later)) << what;
    // What was told last counts, not what was first.
    EXPECT_EQ(stream.news(known, now + later + 2s), news && row.lastAdvertised == Time{} + 11s)
        << what;
  }
}

TEST(TagStreamTest, ATagThatComesBackIsToldWhenItsSecondIsOver) {
  TagStream stream;
  TagRow row{.address = "0a1b2c3d4e5f", .lastAdvertised = Time{}};
  EXPECT_TRUE(stream.news(row, 0s));
  row.battery = 1;
  EXPECT_TRUE(stream.news(row, 10s - 1ms));
  row.lastAdvertised = Time{} + 10s;
  EXPECT_FALSE(stream.news(row, 10s));
  row.lastAdvertised = Time{} + 11s;
  EXPECT_TRUE(stream.news(row, 11s));
  row.lastAdvertised = Time{} + 13s;
  EXPECT_FALSE(stream.news(row, 13s));
}

}  // namespace
}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KVFobLink/KVTrackerTypes.h"
#include "apps/kvfob/scan/scan_view.h"
#include "apps/kvfob/watch/watch_view.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr std::chrono::system_clock::time_point kNow{1000s};

std::string text(const std::vector<std::string>& lines) {
  std::string all;
  for (const auto& line : lines) all += line + "\n";
  return all;
}

// Tags, of which the first was heard now, the second a second before, and so on.
std::vector<HeardTag> tagsHeard(std::size_t count) {
  std::vector<HeardTag> tags;
  for (std::size_t i = 0; i < count; ++i) {
    const auto rssi = -50 - static_cast<std::int64_t>(i);
    tags.push_back({.row = {.address = "0a1b2c3d4e" + std::to_string(10 + i),
                            .rssi = rssi,
                            .level = rssi > -65 ? KVDistanceNear : KVDistanceFar,
                            .battery = 200,
                            .lastAdvertised = kNow - std::chrono::seconds(i)},
                    .firstHeard = kNow - 60s});
  }
  return tags;
}

ScanView viewOf(const std::vector<HeardTag>& tags) {
  ScanView view;
  for (const auto& tag : tags) view.rows.tags.push_back(&tag);
  view.rows.now = kNow;
  view.rows.selected = 0;
  view.heard = tags.size();
  view.elapsed = 65s;
  return view;
}

TEST(ScanViewTest, LayoutKeepsWhatMatters) {
  const struct {
    ScanPanel panel;
    std::size_t height;
    std::size_t top, end, panelFirst, panelEnd, note, room;
  } kCases[] = {
      {ScanPanel::None, 40, 2, 37, 0, 0, 38, 34},   {ScanPanel::None, 24, 2, 21, 0, 0, 22, 18},
      {ScanPanel::None, 16, 2, 13, 0, 0, 14, 10},   {ScanPanel::None, 15, 1, 13, 0, 0, 13, 11},
      {ScanPanel::None, 10, 1, 8, 0, 0, 8, 6},      {ScanPanel::None, 4, 1, 2, 0, 0, 2, 0},
      {ScanPanel::None, 3, 1, 2, 0, 0, 0, 0},       {ScanPanel::None, 1, 1, 0, 0, 0, 0, 0},
      {ScanPanel::Details, 24, 2, 9, 9, 21, 22, 6}, {ScanPanel::Details, 20, 2, 8, 8, 17, 18, 5},
      {ScanPanel::Details, 19, 2, 2, 2, 16, 17, 0}, {ScanPanel::Details, 1, 1, 0, 0, 0, 0, 0},
      {ScanPanel::Help, 24, 2, 8, 8, 21, 22, 5},    {ScanPanel::Help, 10, 1, 1, 1, 8, 8, 0},
  };
  for (const auto& [panel, height, top, end, first, panelEnd, note, room] : kCases) {
    const auto layout = layoutOf(panel, {.height = height});
    EXPECT_EQ(std::tie(layout.top, layout.end, layout.panel, layout.panelEnd, layout.note),
              std::tie(top, end, first, panelEnd, note))
        << height << " " << static_cast<int>(panel);
    EXPECT_EQ(layout.room(), room) << height;
  }
}

TEST(ScanViewTest, ScrollsNoFurtherThanNeeded) {
  const struct {
    std::size_t first, selected, count, room, expected;
  } kCases[] = {{0, 0, 5, 5, 0},  {3, 4, 5, 5, 0},  {0, 4, 10, 5, 0}, {0, 5, 10, 5, 1},
                {4, 2, 10, 5, 2}, {4, 6, 10, 5, 4}, {9, 9, 10, 5, 5}, {2, 9, 10, 5, 5},
                {7, 8, 10, 5, 5}, {0, 7, 10, 0, 7}, {0, 0, 0, 5, 0},  {0, 3, 10, 1, 3}};
  for (const auto& [first, selected, count, room, expected] : kCases) {
    EXPECT_EQ(scrolled(first, selected, count, room), expected) << first << " " << selected;
  }
}

TEST(ScanViewTest, SmallTerminalShowsTableAndLastEvent) {
  const auto tags = tagsHeard(9);
  auto view = viewOf(tags);
  view.rows.first = 2;
  view.rows.selected = 3;
  view.simulated = true;
  view.note = "keys: ringing";
  const auto lines = drawScan(view, {.width = 40, .height = 10});
  ASSERT_EQ(lines.size(), 10U);
  EXPECT_EQ(lines[0], " 9 tags  simulated         4/9  0:01:05");
  EXPECT_EQ(lines[1], "  ADDRESS       RSSI  LEVEL     HEARD");
  EXPECT_EQ(lines[2], "  0a1b2c3d4e12   -52  near        2 s");
  EXPECT_EQ(lines[3], "› 0a1b2c3d4e13   -53  near        3 s");
  EXPECT_EQ(lines[7], "  0a1b2c3d4e17   -57  near        7 s");
  EXPECT_EQ(lines[8], " keys: ringing");
  EXPECT_EQ(lines[9], "  ?  help   q  quit   r  ring   b  bind");
}

TEST(ScanViewTest, ShowsWhatIsGoingOn) {
  auto tags = tagsHeard(3);
  tags[0].row.name = "keys";
  tags[0].row.bound = true;
  tags[0].row.model = 3;
  tags[0].samples = {{63s, -50}, {64s, -70}};
  const struct {
    void (*change)(ScanView& view);
    const char* there;
    const char* missing;
  } kCases[] = {
      {[](ScanView&) {}, "› ●  keys", "simulated"},
      {[](ScanView&) {}, " 3 tags   ", "/3"},
      {[](ScanView& view) { view.left = 1500ms; }, "2 s left", "0:01:05"},
      {[](ScanView& view) { view.filter = "ke"; }, " 3 of 3 tags  /ke ", "_"},
      {[](ScanView& view) { view.typingFilter = true; }, "  /_", "any key"},
      {[](ScanView& view) { view.busy = true; }, "give up", "filter"},
      {[](ScanView& view) { view.panel = ScanPanel::Help; }, "bind it with a new", "› ●  keys 2"},
      {[](ScanView& view) { view.panel = ScanPanel::Details; }, "Bound yes, password not saved",
       "password saved"},
      {[](ScanView& view) {
         view.panel = ScanPanel::Details;
         view.passwordSaved = true;
       },
       "─ keys ", "not saved"},
      {[](ScanView& view) { view.panel = ScanPanel::Details; }, "-70 to -50 dBm", "listening"},
      {[](ScanView& view) { view.panel = ScanPanel::Details; }, "Battery 200 of 255   Model 3",
       "not told"},
      {[](ScanView& view) {
         view.panel = ScanPanel::Details;
         view.rows.selected = 1;
       },
       "Bound not from here", "saved"},
      {[](ScanView& view) {
         view.panel = ScanPanel::Details;
         view.rows.selected = 1;
       },
       "Model not told", "Model 3"},
      {[](ScanView& view) {
         view.question = "Password to bind with: ***_";
         view.answers = {{"Esc", "cancel"}};
         view.note = "before";
       },
       " Password to bind with: ***_", "before"},
      {[](ScanView& view) {
         view.rows.tags.clear();
         view.filter = "x";
       },
       "no tag matches", "ADDR"},
      {[](ScanView& view) {
         view.rows.tags.clear();
         view.heard = 0;
       },
       "listening…", "ADDRESS"},
      {[](ScanView& view) {
         view.rows.tags.resize(1);
         view.heard = 1;
       },
       " 1 tag ", "tags"},
  };
  for (const auto& [change, there, missing] : kCases) {
    auto view = viewOf(tags);
    change(view);
    const auto all = text(drawScan(view, {.width = 80, .height = 24}));
    EXPECT_THAT(all, HasSubstr(there));
    EXPECT_THAT(all, Not(HasSubstr(missing)));
  }
}

TEST(ScanViewTest, StylesTellTheSelectedTheQuietAndTheOrder) {
  auto tags = tagsHeard(12);
  auto view = viewOf(tags);
  const Look look{.width = 80, .height = 24, .color = true};
  const auto lines = drawScan(view, look);
  EXPECT_THAT(lines[3], ::testing::StartsWith("\033[7m› 0a1b2c3d4e10 "));
  EXPECT_THAT(lines[12], Not(::testing::StartsWith("\033[2m")));
  EXPECT_THAT(lines[13], ::testing::StartsWith("\033[2m  0a1b2c3d4e20 "));  // 10 s ago
  EXPECT_THAT(lines[13], HasSubstr("10 s"));
  tags[0].row.name = "keys";
  const std::pair<SortBy, const char*> kMarks[] = {{SortBy::Rssi, "RSSI"},
                                                   {SortBy::Battery, "BATTERY"},
                                                   {SortBy::Name, "NAME"},
                                                   {SortBy::Heard, "HEARD"},
                                                   {SortBy::Address, "ADDRESS"}};
  for (const auto& [order, title] : kMarks) {
    view.rows.order = order;
    EXPECT_THAT(drawScan(view, look)[2], HasSubstr("\033[36m" + std::string(title) + "\033[0m"));
  }
}

TEST(ScanViewTest, DetailsFollowTheSelectedTag) {
  setenv("TZ", "UTC", 1);
  tzset();
  auto tags = tagsHeard(3);
  tags[1].samples = {{60s, -50}, {61s, -60}, {64s, -75}};
  auto view = viewOf(tags);
  view.panel = ScanPanel::Details;
  view.rows.selected = 1;
  const std::string expected =
      " 3 tags                                             0:01:05\n"
      "\n"
      "  ADDRESS       RSSI               LEVEL   BATTERY    HEARD\n"
      "  0a1b2c3d4e10   -50  █████████░░  near        200      now\n"
      "› 0a1b2c3d4e11   -51  █████████░░  near        200      1 s\n"
      "  0a1b2c3d4e12   -52  █████████░░  near        200      2 s\n"
      "\n"
      "\n"
      "─ 0a1b2c3d4e11 ──────────────────────────── -75 to -50 dBm ─\n"
      " Address 0a1b2c3d4e11   Bound not from here\n"
      " Signal -51 dBm   Distance near   Battery 200 of 255\n"
      " Model not told   First heard 00:15:40   Last heard 1 s\n"
      "     │                                               █\n"
      " -60 ┤ ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈█ ┈  ┈\n"
      "     │                                               ██\n"
      " -70 ┤ ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈███  ┈\n"
      "     │                                               ████\n"
      " -80 ┤ ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈██████\n"
      "           -45 s          -30 s          -15 s          now\n"
      "\n"
      "\n"
      "  ?  help   q  quit   r  ring   b  bind   w  watch   ↵  more\n";
  EXPECT_EQ(text(drawScan(view, {.width = 60, .height = 22})), expected);
}

TEST(ScanViewTest, ColumnsGoOneByOneWhereThereIsNoRoom) {
  auto tags = tagsHeard(3);
  tags[0].row.name = "keys";
  tags[0].row.bound = true;
  const auto view = viewOf(tags);
  const std::pair<std::size_t, const char*> kNeeded[] = {{79, "MODEL"}, {72, "█"}, {60, "BATTERY"},
                                                         {51, "HEARD"}, {42, "●"}, {39, "NAME"},
                                                         {29, "LEVEL"}};
  for (const auto& [width, what] : kNeeded) {
    EXPECT_THAT(text(drawTable(view.rows, {.width = width})), HasSubstr(what));
    EXPECT_THAT(text(drawTable(view.rows, {.width = width - 1})), Not(HasSubstr(what)));
  }
  // What is left over goes to the bar, and to names that are long.
  EXPECT_THAT(drawTable(view.rows, {.width = 120})[1], HasSubstr("██░░░░  near"));
  tags[0].row.name = std::string(45, 'n');
  EXPECT_THAT(drawTable(view.rows, {.width = 130})[1], HasSubstr(std::string(39, 'n') + "…  0a"));
  EXPECT_THAT(drawTable(view.rows, {.width = 90})[1], HasSubstr(std::string(18, 'n') + "…  0a"));
}

TEST(ScanViewTest, TableInTheEndHasAllOfThem) {
  auto tags = tagsHeard(30);
  tags[1].row.lastAdvertised = kNow - 119s;
  tags[2].row.lastAdvertised = kNow - 120s;
  tags[3].row.lastAdvertised.reset();
  const auto lines = drawTable(viewOf(tags).rows, {.width = 80, .height = 24});
  ASSERT_EQ(lines.size(), 31U);
  EXPECT_THAT(lines[1], HasSubstr(" now"));
  EXPECT_THAT(lines[2], HasSubstr(" 119 s"));
  EXPECT_THAT(lines[3], HasSubstr(" 2 min"));
  EXPECT_THAT(lines[4], ::testing::EndsWith(" -"));
  EXPECT_EQ(text(drawTable({}, {})), " no tag heard\n");
}

WatchView busyWatch() {
  WatchView view;
  view.name = "caf\u00e9 \u9375 with a name that goes on";
  view.address = "0a1b2c3d4e5f";
  view.rssi = -71;
  view.battery = 200;
  for (int i = 0; i < 300; ++i) view.samples.push_back({i * 1s, -40 - i % 60});
  view.elapsed = 300s;
  for (int i = 0; i < 40; ++i) {
    view.events.push_back({.time = "03:32:20.947", .text = std::string(90, 'e')});
  }
  return view;
}

TEST(ViewsTest, DrawingsFitTheTerminal) {
  auto tags = tagsHeard(60);
  tags[3].row.name = "caf\u00e9 \u9375 and more than that, so that it is long";
  auto scan = viewOf(tags);
  scan.note = std::string(200, 'n');
  scan.filter = std::string(32, 'f');
  for (const std::size_t width : {1U, 20U, 40U, 80U, 120U, 250U}) {
    for (const std::size_t height : {1U, 2U, 5U, 14U, 24U, 40U}) {
      for (const auto panel : {ScanPanel::None, ScanPanel::Details, ScanPanel::Help}) {
        const Look look{.width = width, .height = height, .unicode = panel != ScanPanel::Details};
        scan.panel = panel;
        for (const auto& lines : {drawScan(scan, look), drawWatch(busyWatch(), look)}) {
          EXPECT_LE(lines.size(), height);
          for (const auto& line : lines) EXPECT_LE(columnsOf(line), width) << line;
        }
      }
    }
  }
}

TEST(WatchViewTest, ShowsEverythingInItsPlace) {
  auto view = busyWatch();
  view.samples.resize(20);
  view.elapsed = 25s;
  view.events.resize(3);
  for (auto& event : view.events) event.text = "connected";
  const std::string expected =
      " café 鍵 with a name that goes on  0a1b2c3d4e5f           ○ searching   0:00:25\n"
      "\n"
      " Signal  -71 dBm  ██████░░░░░░ far      Battery 200 ████████░░   Model not told\n"
      " Bell    not set   Button 0 presses\n"
      " Loss    alert not set   distance not set   delay not set\n"
      "\n"
      "─ Signal ── not heard for 25 s: is it near, and on? ────────────────────────────\n"
      "     │                                               █▇▅▄▃▁\n"
      " -50 ┤ ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈███████▇▅▄▃▁  ┈  ┈  ┈  ┈\n"
      " -60 ┤ ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈█████████████▇▅▄▃▁  ┈  ┈\n"
      "     │                                               ███████████████████▇▇▇▇▇▇▇\n"
      " -70 ┤ ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈██████████████████████████\n"
      "                -60 s          -45 s          -30 s          -15 s          now\n"
      "─ Events ───────────────────────────────────────────────────────────────────────\n"
      " 03:32:20.947  connected\n"
      " 03:32:20.947  connected\n"
      " 03:32:20.947  connected\n"
      "\n"
      "\n"
      "  r  ring   s  silence   a  alert on   d  delay   1-3  far to near   q  quit\n";
  EXPECT_EQ(text(drawWatch(view, {.width = 80, .height = 20})), expected);
  const std::string smaller =
      " café 鍵 with a name …  0a1b2c3d4e5f  ○ searching   0:00:25\n"
      " Signal  -71 dBm  ██████░░░░░░ far      Battery 200   Model\n"
      " Bell    not set   Button 0 presses\n"
      " Loss    alert not set   distance not set   delay not set\n"
      "─ Signal ── not heard for 25 s: is it near, and on? ────────\n"
      " -50 ┤ ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈ █▇▆▆▅▄▃▂▂▁┈  ┈  ┈  ┈  ┈  ┈\n"
      " -60 ┤ ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈ ███████████▇▆▆▅▄▃▂▂▁▁▁▁▁▁▁\n"
      " -70 ┤ ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈  ┈ ██████████████████████████\n"
      "           -45 s          -30 s          -15 s          now\n"
      "─ Events ───────────────────────────────────────────────────\n"
      " 03:32:20.947  connected\n"
      " 03:32:20.947  connected\n"
      " 03:32:20.947  connected\n"
      "  r  ring   s  silence   a  alert on   d  delay\n";
  EXPECT_EQ(text(drawWatch(view, {.width = 60, .height = 14})), smaller);
}

TEST(WatchViewTest, TinyAndWideTerminals) {
  auto view = busyWatch();
  view.events.resize(1);
  view.events[0].text = "→ ring: sent";
  view.connection = KVConnectionConnected;
  const std::string tiny =
      "café 鍵 with a name that goes on\n"
      "● connected\n"
      "-71 dBm, far\n"
      "→ ring: sent\n"
      "r ring  s silence  q quit\n"
      "a larger terminal shows more\n";
  for (const Look& look : {Look{.width = 49, .height = 20}, Look{.width = 80, .height = 13}}) {
    EXPECT_THAT(text(drawWatch(view, look)), ::testing::StartsWith(tiny));
  }
  view.typedDelay = "60";
  EXPECT_THAT(text(drawWatch(view, {.width = 40, .height = 10})), HasSubstr("\ndelay 60_\n"));
  EXPECT_THAT(text(drawWatch(view, {.width = 80, .height = 24})),
              HasSubstr("0 to 7000: 60_   Enter"));
  const std::string signal = " Signal  -71 dBm  ██████░░░░░░ far      Battery 200";
  EXPECT_THAT(drawWatch(view, {.width = 99, .height = 24})[2], ::testing::StartsWith(signal));
  EXPECT_EQ(drawWatch(view, {.width = 100, .height = 24})[2],
            " Signal  -71 dBm  ███████████████░░░░░░░░░░░░░░░ far      Battery 200 ████████░░   "
            "Model not told");
}

TEST(WatchViewTest, NamesTheStateOfTheConnection) {
  const struct {
    std::uint64_t connection;
    bool heard;
    const char* state;
  } kCases[] = {{KVConnectionConnected, true, "● connected   0:05:00"},
                {KVConnectionConnecting, true, "○ connecting   0:05:00"},
                {KVConnectionVerifyFailed, true, "○ password refused   0:05:00"},
                {KVConnectionDisconnect, true, "○ connection lost   0:05:00"},
                {KVConnectionDisconnect, false, "○ searching   0:05:00"}};
  for (const auto& [connection, heard, state] : kCases) {
    auto view = busyWatch();
    view.connection = connection;
    if (heard) view.heard = 1s;
    EXPECT_THAT(drawWatch(view, {.width = 80, .height = 24})[0], ::testing::EndsWith(state));
  }
}

TEST(WatchViewTest, NamesUnitsAndWhatIsNotSet) {
  auto view = busyWatch();
  const Look look{.width = 80, .height = 24};
  view.bell = true;
  view.alert = false;
  view.delay = 600;
  view.distance = KVDistanceMiddle;
  view.presses = 1;
  view.battery.reset();
  view.model = 0;
  const auto all = text(drawWatch(view, look));
  for (const char* there : {"Bell    ringing   Button 1 press\n", "Battery not known   Model 0",
                            "alert off   distance middle   delay 600, in the tag's own unit"}) {
    EXPECT_THAT(all, HasSubstr(there));
  }
}

TEST(WatchViewTest, SaysWhyThereIsNoConnection) {
  const struct {
    std::uint64_t connection;
    std::chrono::milliseconds elapsed, since;
    std::optional<std::chrono::milliseconds> heard;
    bool linkUp;
    const char* text;
  } kCases[] = {
      {KVConnectionConnecting, 4999ms, 0s, {}, false, ""},
      {KVConnectionConnecting, 5s, 0s, {}, false, "not heard for 5 s: is it near, and on?"},
      {KVConnectionDisconnect, 70s, 60s, 50s, false, "not heard for 20 s: is it near, and on?"},
      {KVConnectionConnecting, 70s, 60s, 60s, false, "not heard for 10 s: is it near, and on?"},
      {KVConnectionConnecting, 70s, 60s, 67s, false, "heard 3 s ago, but no link for 10 s"},
      {KVConnectionConnecting, 70s, 60s, 67s, true,
       "the link is up, but no handshake; no connection for 10 s"},
      {KVConnectionConnected, 70s, 0s, 67s, true, ""},
      {KVConnectionVerifyFailed, 70s, 0s, 67s, true, ""},
  };
  for (const auto& [connection, elapsed, since, heard, linkUp, expected] : kCases) {
    WatchView view;
    view.connection = connection;
    view.elapsed = elapsed;
    view.linkSince = since;
    view.heard = heard;
    view.linkUp = linkUp;
    EXPECT_EQ(waitText(view), expected);
    for (const std::size_t height : {10U, 14U, 24U}) {
      EXPECT_THAT(text(drawWatch(view, {.width = 80, .height = height})), HasSubstr(expected));
    }
  }
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

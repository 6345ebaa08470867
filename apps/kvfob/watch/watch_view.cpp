// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/watch/watch_view.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "apps/kvfob/base/text.h"
#include "apps/kvfob/terminal/frame.h"

namespace kvfob {
namespace {

constexpr std::size_t kLeastWidth = 50;
constexpr std::size_t kLeastHeight = 14;

struct State {
  const char* text;
  Style style;
};

State stateOf(const WatchView& view) {
  switch (view.connection) {
    case KVConnectionConnected:
      return {"● connected", Style::Good};
    case KVConnectionConnecting:
      return {"○ connecting", Style::Warn};
    case KVConnectionVerifyFailed:
      return {"○ password refused", Style::Bad};
    default:
      return view.found ? State{"○ connection lost", Style::Bad}
                        : State{"○ searching", Style::Warn};
  }
}

std::string clockOf(std::chrono::milliseconds elapsed) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(elapsed).count();
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%lld:%02d:%02d", static_cast<long long>(seconds / 3600),
                static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
  return text.data();
}

std::string dbm(std::int64_t rssi) { return std::to_string(rssi) + " dBm"; }

std::string onOff(const std::optional<bool>& value, const char* on, const char* off) {
  if (!value) return "-";
  return *value ? on : off;
}

void drawHeader(Canvas& canvas, const WatchView& view) {
  const auto state = stateOf(view);
  const auto time = clockOf(view.elapsed);
  const auto end = canvas.width() - 1;
  const auto timeAt = end - time.size();
  const auto stateAt = timeAt - 3 - columnsOf(state.text);
  const auto most = stateAt - 3;
  std::size_t x = 1;
  if (!view.name.empty()) {
    const auto room = most > view.address.size() + 2 ? most - view.address.size() - 2 : most;
    x = canvas.put(x, 0, view.name, Style::Bold, room) + 2;
  }
  if (x < most) canvas.put(x, 0, view.address, view.name.empty() ? Style::Bold : Style::Dim, most);
  canvas.put(stateAt, 0, state.text, state.style);
  canvas.put(timeAt, 0, time, Style::Dim);
}

// A fact with its name before it; the column after both.
std::size_t drawFact(Canvas& canvas, std::size_t x, std::size_t y, std::string_view name,
                     std::string_view value, Style style = Style::Plain) {
  x = canvas.put(x, y, name, Style::Dim) + 1;
  return canvas.put(x, y, value, style) + 3;
}

void drawSignal(Canvas& canvas, const WatchView& view, std::size_t y) {
  const auto strength = static_cast<double>(view.rssi.value_or(0));
  const auto style = view.rssi ? strengthStyle(strength) : Style::Dim;
  const std::size_t bar = canvas.width() >= 100 ? 30 : 12;
  auto x = drawFact(canvas, 1, y, "Signal ", view.rssi ? dbm(*view.rssi) : "-", Style::Bold);
  x = std::max<std::size_t>(x - 1, 18);
  canvas.bar(x, y, bar, view.rssi ? strengthShare(strength) : 0, style);
  x += bar + 1;
  canvas.put(x, y, view.rssi ? levelName(view.level) : "", style);
  x += 9;
  x = drawFact(canvas, x, y, "Battery", view.battery ? std::to_string(*view.battery) : "-",
               view.battery ? batteryStyle(*view.battery) : Style::Plain);
  drawFact(canvas, x, y, "Model", view.model ? std::to_string(*view.model) : "-");
}

void drawSettings(Canvas& canvas, const WatchView& view, std::size_t y) {
  auto x = drawFact(canvas, 1, y, "Bell   ", onOff(view.bell, "ringing", "silent"),
                    view.bell.value_or(false) ? Style::Warn : Style::Plain);
  x = drawFact(canvas, x, y, "Button",
               view.presses == 1 ? "1 press" : std::to_string(view.presses) + " presses");
  x = drawFact(canvas, x, y, "Loss alert", onOff(view.alert, "on", "off"));
  x = drawFact(canvas, x, y, "delay", view.delay ? std::to_string(*view.delay) : "-");
  drawFact(canvas, x, y, "distance", view.distance ? levelName(*view.distance) : "-");
}

std::string rangeOf(const std::vector<Sample>& samples) {
  if (samples.empty()) return "";
  const auto [low, high] = std::minmax_element(
      samples.begin(), samples.end(), [](const auto& a, const auto& b) { return a.dbm < b.dbm; });
  return std::to_string(low->dbm) + " to " + dbm(high->dbm);
}

void drawEvents(Canvas& canvas, const WatchView& view, std::size_t top, std::size_t rows) {
  const auto count = std::min(rows, view.events.size());
  auto event = view.events.end() - static_cast<std::ptrdiff_t>(count);
  for (auto y = top; event != view.events.end(); ++event, ++y) {
    const auto x = canvas.put(1, y, event->time, Style::Dim) + 2;
    canvas.put(x, y, event->text, event->style);
  }
}

void drawKeys(Canvas& canvas, const WatchView& view) {
  if (view.typedDelay) {
    return drawFooter(canvas, {{"0-9", "loss delay, 0 to 7000: " + *view.typedDelay + "_"},
                               {"Enter", "send"},
                               {"Esc", "leave it"}});
  }
  drawFooter(canvas, {{"r", "ring"},
                      {"s", "silence"},
                      {"a", view.alert.value_or(false) ? "alert off" : "alert on"},
                      {"d", "delay"},
                      {"1-3", "far to near"},
                      {"q", "quit"}});
}

// What matters most, where there is no room for all.
void drawTiny(Canvas& canvas, const WatchView& view) {
  const auto state = stateOf(view);
  canvas.put(0, 0, view.name.empty() ? view.address : view.name, Style::Bold);
  canvas.put(0, 1, state.text, state.style);
  if (view.rssi) {
    const auto x = canvas.put(0, 2, dbm(*view.rssi) + ", ");
    canvas.put(x, 2, levelName(view.level), strengthStyle(static_cast<double>(*view.rssi)));
  }
  if (!view.events.empty()) canvas.put(0, 3, view.events.back().text, view.events.back().style);
  canvas.put(0, 4,
             view.typedDelay ? "delay " + *view.typedDelay + "_" : "r ring  s silence  q quit",
             Style::Dim);
  canvas.put(0, 5, "a larger terminal shows more", Style::Dim);
}

}  // namespace

std::vector<std::string> drawWatch(const WatchView& view, const Look& look) {
  Canvas canvas(look);
  if (look.width < kLeastWidth || look.height < kLeastHeight) {
    drawTiny(canvas, view);
    return canvas.lines();
  }
  const bool roomy = look.height >= 20;
  drawHeader(canvas, view);
  std::size_t y = roomy ? 2 : 1;
  drawSignal(canvas, view, y++);
  drawSettings(canvas, view, y++);
  if (roomy) ++y;
  const auto rest = look.height - y - 3;  // two rules and the footer
  const auto plotRows = rest * 3 / 5;
  drawRule(canvas, y++, "Signal", rangeOf(view.samples));
  drawPlot(canvas, y, plotRows, view.samples, view.elapsed);
  y += plotRows;
  drawRule(canvas, y++, "Events");
  drawEvents(canvas, view, y, look.height - 1 - y);
  drawKeys(canvas, view);
  return canvas.lines();
}

}  // namespace kvfob

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

using namespace std::chrono_literals;

constexpr std::size_t kLeastWidth = 50;
constexpr std::size_t kLeastHeight = 14;

constexpr double kBatteryMost = 255;
constexpr std::size_t kBatteryBar = 10;
constexpr std::size_t kBatteryBarFrom = 76;  // columns of the terminal

// A link that comes up quickly is not worth a word.
constexpr std::chrono::milliseconds kWaitTold = 5s;

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
      return view.heard ? State{"○ connection lost", Style::Bad}
                        : State{"○ searching", Style::Warn};
  }
}

std::string dbm(std::int64_t rssi) { return std::to_string(rssi) + " dBm"; }

std::string onOff(const std::optional<bool>& value, const char* on, const char* off) {
  if (!value) return "not set";
  return *value ? on : off;
}

void drawHeader(Canvas& canvas, const WatchView& view) {
  const auto state = stateOf(view);
  const auto time = clockText(view.elapsed);
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

void drawSignal(Canvas& canvas, const WatchView& view, std::size_t y) {
  const auto strength = static_cast<double>(view.rssi.value_or(0));
  const auto style = view.rssi ? strengthStyle(strength) : Style::Dim;
  const std::size_t bar = canvas.width() >= 100 ? 30 : 12;
  auto x = drawFact(canvas, 1, y, "Signal ", view.rssi ? dbm(*view.rssi) : "not known",
                    view.rssi ? Style::Bold : Style::Plain);
  x = std::max<std::size_t>(x - 1, 18);
  canvas.bar(x, y, bar, view.rssi ? strengthShare(strength) : 0, style);
  x += bar + 1;
  canvas.put(x, y, view.rssi ? levelName(view.level) : "", style);
  x += 9;
  if (!view.battery) {
    x = drawFact(canvas, x, y, "Battery", "not known");
  } else {
    const auto battery = *view.battery;
    const auto barStyle =
        batteryStyle(battery) == Style::Plain ? Style::Good : batteryStyle(battery);
    x = drawFact(canvas, x, y, "Battery", std::to_string(battery), batteryStyle(battery));
    if (canvas.width() >= kBatteryBarFrom) {
      canvas.bar(x - 2, y, kBatteryBar, static_cast<double>(battery) / kBatteryMost, barStyle);
      x += kBatteryBar + 1;
    }
  }
  drawFact(canvas, x, y, "Model", view.model ? std::to_string(*view.model) : "not told");
}

void drawSettings(Canvas& canvas, const WatchView& view, std::size_t y) {
  auto x = drawFact(canvas, 1, y, "Bell   ", onOff(view.bell, "ringing", "silent"),
                    view.bell.value_or(false) ? Style::Warn : Style::Plain);
  drawFact(canvas, x, y, "Button",
           view.presses == 1 ? "1 press" : std::to_string(view.presses) + " presses");
  x = drawFact(canvas, 1, y + 1, "Loss    alert", onOff(view.alert, "on", "off"));
  x = drawFact(canvas, x, y + 1, "distance", view.distance ? levelName(*view.distance) : "not set");
  drawFact(canvas, x, y + 1, "delay",
           view.delay ? std::to_string(*view.delay) + ", in the tag's own unit" : "not set");
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
  if (const auto wait = waitText(view); !wait.empty()) {
    canvas.put(0, 2, wait, Style::Warn);
  } else if (view.rssi) {
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

std::string waitText(const WatchView& view) {
  if (view.connection == KVConnectionConnected || view.connection == KVConnectionVerifyFailed) {
    return "";
  }
  const auto waited = view.elapsed - view.linkSince;
  if (waited < kWaitTold) return "";
  const auto ago = [](std::chrono::milliseconds time) {
    return std::to_string(std::chrono::floor<std::chrono::seconds>(time).count()) + " s";
  };
  if (view.linkUp) return "the link is up, but no handshake; no connection for " + ago(waited);
  if (!view.heard) return "not heard for " + ago(waited) + ": is it near, and on?";
  const auto silent = ago(view.elapsed - *view.heard);
  if (*view.heard > view.linkSince) {
    return "heard " + silent + " ago, but no link for " + ago(waited);
  }
  return "not heard for " + silent + ": is it near, and on?";
}

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
  drawSettings(canvas, view, y);
  y += 2;
  if (roomy) ++y;
  const auto rest = look.height - y - 3;  // two rules and the footer
  const auto plotRows = rest * 3 / 5;
  const auto wait = waitText(view);
  drawRule(canvas, y, "Signal", wait.empty() ? rangeOf(view.samples) : "");
  if (!wait.empty()) canvas.put(11, y, " " + wait + " ", Style::Warn);
  ++y;
  drawPlot(canvas, y, plotRows, view.samples, view.elapsed);
  y += plotRows;
  drawRule(canvas, y++, "Events");
  drawEvents(canvas, view, y, look.height - 1 - y);
  drawKeys(canvas, view);
  return canvas.lines();
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/watch/watch_screen.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "apps/kvfob/base/text.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kRedraw = 500ms;
// What is kept of the past: more than any terminal shows.
constexpr std::size_t kSamplesMost = 1000;
constexpr std::size_t kEventsMost = 500;
constexpr std::size_t kDelayDigits = 4;
constexpr std::int64_t kDelayMost = 7000;

}  // namespace

WatchScreen::WatchScreen(Session& session, std::shared_ptr<KVTracker> tracker, std::string name)
    : session_(session),
      tracker_(std::move(tracker)),
      start_(session.loop().queue().now()),
      screen_(
          session.loop(), [this](char key) { typed(key); }, [this] { draw(); }) {
  view_.address = tracker_->mac().value_or("");
  view_.name = std::move(name);
  session_.console().divertNotes([this](std::string_view text) {
    add(std::string(text), Style::Warn);
    draw();
  });
  tick();
}

WatchScreen::~WatchScreen() { session_.console().divertNotes({}); }

void WatchScreen::log(const std::string& what) {
  add(what, what == "connected" ? Style::Good : Style::Plain);
  draw();
}

void WatchScreen::logPress() {
  ++view_.presses;
  add("button pressed", Style::Accent);
  draw();
}

void WatchScreen::measured() {
  if (view_.samples.size() == kSamplesMost) view_.samples.erase(view_.samples.begin());
  view_.samples.push_back({elapsed(), tracker_->rssi()});
  draw();
}

void WatchScreen::typed(char key) {
  if (view_.typedDelay) {
    typedInDelay(key);
  } else if (key == 'q') {
    return session_.finish({});
  } else {
    command(key);
  }
  draw();
}

void WatchScreen::typedInDelay(char key) {
  auto& text = *view_.typedDelay;
  if (key >= '0' && key <= '9' && text.size() < kDelayDigits) {
    text += key;
  } else if (key == kEraseKey && !text.empty()) {
    text.pop_back();
  } else if (key == kEscapeKey) {
    view_.typedDelay.reset();
  } else if (key == kEnterKey) {
    std::int64_t delay = -1;
    std::from_chars(text.data(), text.data() + text.size(), delay);
    view_.typedDelay.reset();
    sendDelay(delay);
  }
}

void WatchScreen::sendDelay(std::int64_t delay) {
  if (delay < 0 || delay > kDelayMost) return add("a delay is 0 to 7000", Style::Warn);
  tracker_->writeLossDelay(
      delay, answer("loss delay " + std::to_string(delay), [this, delay] { view_.delay = delay; }));
}

void WatchScreen::command(char key) {
  constexpr std::string_view kKeys = "rsad123";
  if (kKeys.find(key) == std::string_view::npos) return;
  if (tracker_->connection() != KVConnectionConnected) {
    return add("not connected: nothing was sent", Style::Warn);
  }
  const bool ring = key == 'r';
  const bool alert = !view_.alert.value_or(false);
  switch (key) {
    case 'r':
    case 's':
      return tracker_->switchBellStatus(
          ring, answer(ring ? "ringing" : "silent", [this, ring] { view_.bell = ring; }));
    case 'a':
      return tracker_->writeLossAlert(alert, answer(alert ? "loss alert on" : "loss alert off",
                                                    [this, alert] { view_.alert = alert; }));
    case 'd':
      view_.typedDelay.emplace();
      return;
    default: {
      const auto level = KVDistanceFar + static_cast<std::uint64_t>(key - '1');
      return tracker_->writeLossDistance(level,
                                         answer("loss distance " + std::string(levelName(level)),
                                                [this, level] { view_.distance = level; }));
    }
  }
}

KVResultCallback WatchScreen::answer(std::string done, std::function<void()> apply) {
  return [this, alive = std::weak_ptr(alive_), done = std::move(done), apply = std::move(apply)](
             bool success, const std::optional<KVError>& error) {
    if (alive.expired()) return;
    if (success) apply();
    const auto why = error ? error->domain : "no reason given";
    add(success ? done : "refused: " + why, success ? Style::Good : Style::Bad);
    draw();
  };
}

void WatchScreen::tick() {
  draw();
  session_.after(kRedraw, [this, alive = std::weak_ptr(alive_)] {
    if (!alive.expired()) tick();
  });
}

void WatchScreen::draw() {
  refresh();
  screen_.show(drawWatch(view_, screen_.look(session_.console().color())));
}

void WatchScreen::refresh() {
  view_.elapsed = elapsed();
  view_.connection = tracker_->connection();
  if (!tracker_->advUpdate()) return;
  view_.found = true;
  if (tracker_->rssi() != 0) view_.rssi = tracker_->rssi();
  view_.level = tracker_->distance();
  view_.battery = tracker_->battery();
  if (tracker_->model() >= 0) view_.model = tracker_->model();
}

void WatchScreen::add(const std::string& what, Style style) {
  if (view_.events.size() == kEventsMost) view_.events.pop_front();
  view_.events.push_back({clockTime(KVPlatform::current().clock->now()), what, style});
}

std::chrono::milliseconds WatchScreen::elapsed() const {
  return std::chrono::duration_cast<std::chrono::milliseconds>(session_.loop().queue().now() -
                                                               start_);
}

}  // namespace kvfob

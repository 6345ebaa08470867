// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/watch/watch_screen.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "apps/kvfob/base/tag_facts.h"
#include "apps/kvfob/base/text.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kRedraw = 500ms;
// What is kept of the past: more than any terminal shows.
constexpr std::size_t kSamplesMost = 1000;
constexpr std::size_t kEventsMost = 500;
constexpr std::size_t kDelayDigits = 4;

}  // namespace

WatchScreen::WatchScreen(Session& session, std::shared_ptr<KVTracker> tracker, std::string name,
                         std::function<void()> leave)
    : session_(session),
      tracker_(std::move(tracker)),
      leave_(std::move(leave)),
      start_(session.loop().queue().now()),
      screen_(
          session.loop(), [this](const Key& key) { typed(key); }, [this] { draw(); }) {
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
  view_.heard = elapsed();
  draw();
}

void WatchScreen::typed(const Key& key) {
  if (view_.typedDelay) {
    typedInDelay(key);
  } else if (isCharacter(key, 'q')) {
    return leave_ ? leave_() : session_.finish({});
  } else if (key.kind == KeyKind::Character) {
    command(key.character);
  }
  draw();
}

void WatchScreen::typedInDelay(const Key& key) {
  auto& text = *view_.typedDelay;
  if (key.kind == KeyKind::Escape) {
    view_.typedDelay.reset();
  } else if (key.kind == KeyKind::Enter) {
    std::int64_t delay = -1;
    std::from_chars(text.data(), text.data() + text.size(), delay);
    view_.typedDelay.reset();
    sendDelay(delay);
  } else if (key.kind != KeyKind::Character || (key.character >= '0' && key.character <= '9')) {
    typeInto(text, key, kDelayDigits);
  }
}

void WatchScreen::sendDelay(std::int64_t delay) {
  if (delay < 0 || delay > kDelayMost) return add("a delay is 0 to 7000", Style::Warn);
  if (!ready(CommandKind::Delay)) return;
  tracker_->writeLossDelay(delay, send(CommandKind::Delay, "loss delay " + std::to_string(delay),
                                       [this, delay] { view_.delay = delay; }));
}

void WatchScreen::command(char key) {
  const bool ring = key == 'r';
  const bool alert = !view_.alert.value_or(false);
  switch (key) {
    case 'r':
    case 's':
      if (!ready(CommandKind::Bell)) return;
      return tracker_->switchBellStatus(ring, send(CommandKind::Bell, ring ? "ring" : "silence",
                                                   [this, ring] { view_.bell = ring; }));
    case 'a':
      if (!ready(CommandKind::Alert)) return;
      return tracker_->writeLossAlert(
          alert, send(CommandKind::Alert, alert ? "loss alert on" : "loss alert off",
                      [this, alert] { view_.alert = alert; }));
    case 'd':
      if (ready(CommandKind::Delay)) view_.typedDelay.emplace();
      return;
    case '1':
    case '2':
    case '3': {
      if (!ready(CommandKind::Distance)) return;
      const auto level = KVDistanceFar + static_cast<std::uint64_t>(key - '1');
      return tracker_->writeLossDistance(
          level, send(CommandKind::Distance, "loss distance " + std::string(levelName(level)),
                      [this, level] { view_.distance = level; }));
    }
    default:
      return;
  }
}

bool WatchScreen::ready(CommandKind kind) {
  if (tracker_->connection() != KVConnectionConnected) {
    add("not connected: nothing was sent", Style::Warn);
  } else if (sent_.waits(kind)) {
    add("nothing was sent: the last one still waits for its answer", Style::Warn);
  } else {
    return true;
  }
  return false;
}

KVResultCallback WatchScreen::send(CommandKind kind, const std::string& what,
                                   std::function<void()> apply) {
  add(sent_.sent(kind, what, elapsed()), Style::Plain);
  return [this, alive = std::weak_ptr(alive_), kind, apply = std::move(apply)](
             bool success, const std::optional<KVError>& error) {
    if (alive.expired()) return;
    if (success) apply();
    std::optional<std::string> refusal;
    if (!success) refusal = error ? error->domain : "no reason given";
    add(sent_.answered(kind, refusal, elapsed()), success ? Style::Good : Style::Bad);
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
  refreshLink();
  for (const auto& text : sent_.overdue(view_.elapsed)) add(text, Style::Warn);
  if (!tracker_->advUpdate()) return;
  if (tracker_->rssi() != 0) view_.rssi = tracker_->rssi();
  view_.level = tracker_->distance();
  view_.battery = tracker_->battery();
  if (tracker_->model() >= 0) view_.model = tracker_->model();
}

void WatchScreen::refreshLink() {
  const auto connection = tracker_->connection();
  const bool up = connection == KVConnectionConnected;
  if (!up && view_.connection == KVConnectionConnected) {
    view_.linkSince = view_.elapsed;
    for (const auto& text : sent_.lost()) add(text, Style::Warn);
  }
  view_.connection = connection;
  view_.linkUp = tracker_->state() == KVTrackerStateConnected;
  if (const auto advertised = tracker_->advUpdate()) {
    const auto ago = KVPlatform::current().clock->now() - *advertised;
    const auto heard = view_.elapsed - std::chrono::duration_cast<std::chrono::milliseconds>(ago);
    view_.heard = std::max(view_.heard.value_or(heard), heard);
  }
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

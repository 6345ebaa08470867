// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/scan.h"

#include <memory>
#include <string>
#include <utility>

#include "apps/kvfob/scan/scan_view.h"
#include "apps/kvfob/terminal/screen.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kDefaultDuration = 10s;
constexpr std::chrono::milliseconds kRedraw = 250ms;

class Scan {
 public:
  Scan(Session& session, const Options& options, NameOf nameOf)
      : session_(session),
        options_(options),
        nameOf_(std::move(nameOf)),
        duration_(options.duration.value_or(kDefaultDuration)),
        order_(options.sort) {}

  Outcome run();

 private:
  void begin();
  void openScreen();
  void typed(const Key& key);
  void tick();
  void draw();
  ScanView view() const;
  void writeJson();
  void writeTable();

  KVEventQueue& queue() const { return session_.loop().queue(); }

  Session& session_;
  const Options& options_;
  const NameOf nameOf_;
  const std::chrono::milliseconds duration_;
  SortBy order_;
  KVEventQueue::Duration start_{0};
  std::string note_;
  Look look_;
  std::unique_ptr<Screen> screen_;
};

Outcome Scan::run() {
  session_.surviveAdapter();
  session_.whenOn([this] { begin(); });
  session_.atEnd([this] {
    screen_.reset();
    session_.console().divertNotes({});
  });
  auto outcome = session_.run();
  // What was found until Ctrl-C is shown all the same.
  if (outcome.code == kNoAdapter) return outcome;
  options_.json ? writeJson() : writeTable();
  return outcome;
}

void Scan::begin() {
  start_ = queue().now();
  session_.manager().startScan([](const KVTrackers&) {});
  session_.after(duration_, [this] { session_.finish({}); });
  // The library's lines would be written across the screen.
  if (session_.console().live() && !options_.json && options_.log == LogLevel::Off) openScreen();
}

void Scan::openScreen() {
  screen_ = std::make_unique<Screen>(
      session_.loop(), [this](const Key& key) { typed(key); }, [this] { draw(); });
  session_.console().divertNotes([this](std::string_view text) { note_ = text; });
  tick();
}

void Scan::typed(const Key& key) {
  if (isCharacter(key, 'q')) return session_.finish({});
  if (isCharacter(key, 's')) order_ = nextOrder(order_);
  draw();
}

void Scan::tick() {
  draw();
  session_.after(kRedraw, [this] { tick(); });
}

void Scan::draw() {
  if (!screen_) return;
  look_ = screen_->look(session_.console().color());
  screen_->show(drawScan(view(), look_));
}

ScanView Scan::view() const {
  const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(queue().now() - start_);
  return {.rows = rowsOf(session_.manager().scannedTrackers(), nameOf_, order_),
          .order = order_,
          .now = KVPlatform::current().clock->now(),
          .left = duration_ - passed,
          .note = note_};
}

void Scan::writeJson() {
  for (const auto& row : rowsOf(session_.manager().scannedTrackers(), nameOf_, SortBy::Address)) {
    session_.console().line(toJson(row));
  }
}

void Scan::writeTable() {
  look_.color = session_.console().color();
  for (const auto& line : drawTable(view(), look_)) session_.console().line(line);
}

}  // namespace

Outcome runScan(Session& session, const Options& options, NameOf nameOf) {
  return Scan(session, options, std::move(nameOf)).run();
}

}  // namespace kvfob

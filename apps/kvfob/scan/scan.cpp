// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/scan.h"

#include <memory>
#include <string>
#include <utility>

#include "apps/kvfob/scan/scan_screen.h"
#include "apps/kvfob/scan/tag_stream.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kDefaultDuration = 10s;
// How late an event may be told. In a crowd, each tag would else be looked at for each other's
// advertisements.
constexpr std::chrono::milliseconds kLook = 50ms;

class Scan {
 public:
  Scan(Session& session, const Options& options, ScanMemory memory)
      : session_(session),
        options_(options),
        memory_(std::move(memory)),
        // The library's lines would be written across a screen.
        live_(session.console().live() && !options.json && options.log == LogLevel::Off),
        tags_([this](TagRow& row) {
          const auto known = memory_.find(row.address);
          row.name = known ? known->name : "";
          row.bound = known && known->bound;
        }),
        order_(options.sort) {}

  Outcome run();

 private:
  void begin();
  void refresh();
  void look();
  void tell();
  void writeTable();

  KVEventQueue& queue() const { return session_.loop().queue(); }
  std::chrono::milliseconds at() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(queue().now() - start_);
  }

  Session& session_;
  const Options& options_;
  ScanMemory memory_;
  const bool live_;
  KVEventQueue::Duration start_{0};
  TagList tags_;
  TagStream stream_;
  bool looking_ = false;
  Look look_;  // of the table in the end
  SortBy order_;
  std::unique_ptr<ScanScreen> screen_;
};

Outcome Scan::run() {
  session_.surviveAdapter();
  session_.whenOn([this] { begin(); }, options_.timeout);
  look_.color = session_.console().color();
  session_.atEnd([this] {
    if (!screen_) return;
    look_ = screen_->look();
    order_ = screen_->order();
    screen_.reset();
  });
  auto outcome = session_.run();
  // What was found until Ctrl-C is shown all the same.
  if (outcome.code == kNoAdapter) return outcome;
  refresh();
  options_.json ? tell() : writeTable();
  return outcome;
}

void Scan::begin() {
  start_ = queue().now();
  session_.manager().startScan([this](const KVTrackers&) {
    if (options_.json) look();
  });
  auto duration = options_.duration;
  if (!duration && !live_ && !options_.follow) duration = kDefaultDuration;
  if (duration) session_.after(*duration, [this] { session_.finish({}); });
  if (live_) {
    screen_ =
        std::make_unique<ScanScreen>(session_, options_, memory_, tags_, [this] { refresh(); });
  }
}

void Scan::refresh() {
  const auto now = at();
  for (const auto& tracker : session_.manager().scannedTrackers()) tags_.take(*tracker, now);
  for (const auto& tracker : *session_.manager().bindTrackers()) tags_.take(*tracker, now);
}

void Scan::look() {
  if (std::exchange(looking_, true)) return;
  session_.after(stream_.empty() ? 0ms : kLook, [this] {
    looking_ = false;
    refresh();
    tell();
  });
}

void Scan::tell() {
  tags_.arrange(SortBy::Address, "");
  const auto now = KVPlatform::current().clock->now();
  std::string lines;
  for (const auto* tag : tags_.shown()) {
    if (stream_.news(tag->row, at())) lines += jsonLine(tagEvent(tag->row, now)) + "\n";
  }
  if (!lines.empty()) session_.console().block(lines);
}

void Scan::writeTable() {
  tags_.arrange(order_, "");
  const ScanRows rows{.tags = tags_.shown(), .now = KVPlatform::current().clock->now()};
  for (const auto& line : drawTable(rows, look_)) session_.console().line(line);
}

}  // namespace

Outcome runScan(Session& session, const Options& options, ScanMemory memory) {
  return Scan(session, options, std::move(memory)).run();
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/radio/session.h"

#include <algorithm>
#include <utility>

#include "apps/kvfob/radio/daemon_age.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;

constexpr Session::Duration kAdapterHint = 2s;
// A service that was started this long ago has looked at its adapters, and has switched on what it
// is to switch on.
constexpr std::chrono::milliseconds kSettled = 5s;
// How long a service is away that is being restarted.
constexpr Session::Duration kRestart = 1s;
constexpr Session::Duration kLookAgain = 200ms;
// BlueZ takes about two seconds to end a link.
constexpr auto kDropPatience = 6s;

// How it ends where Bluetooth cannot be used: with what is wrong, what to do, and a word for it.
Outcome unusable(const KVFinding& finding) {
  auto text = finding.seen;
  if (!finding.advice.empty()) text += "; " + finding.advice;
  if (finding.topic == "permission") return {kNoAdapter, text, "not-permitted"};
  if (finding.topic == "power") return {kNoAdapter, text, "powered-off"};
  if (finding.topic == "adapter") return {kNoAdapter, text, "no-adapter"};
  return {kNoAdapter, text, "no-service"};
}

}  // namespace

Session::Session(const Radio& radio, Loop& loop, Console& console)
    : radio_(radio),
      loop_(loop),
      console_(console),
      manager_(std::make_shared<KVTrackerManager>()) {
  manager_->didChangeBluetooth([this](std::int64_t) { adapterChanged(); });
}

Session::~Session() {
  manager_->didChangeBluetooth({});
  if (keeps_) endLinks();
}

void Session::whenOn(std::function<void()> ready, Duration patience) {
  ready_ = std::move(ready);
  after(kAdapterHint, [this] {
    if (ready_) console_.note("waiting for Bluetooth");
  });
  after(patience, [this] {
    if (ready_) finish({kNoAdapter, "Bluetooth did not get ready in time"});
  });
  adapterChanged();
}

void Session::adapterChanged() {
  if (finished()) return;
  const bool was = std::exchange(on_, manager_->bleState() == KVCentralStatePoweredOn);
  if (on_) {
    diagnosis_.reset();
    if (auto ready = std::exchange(ready_, {})) {
      ready();
    } else if (!was) {
      console_.note("the Bluetooth adapter is on");
    }
    return;
  }
  if (was && adapterMayFail_) {
    const bool off = manager_->bleState() == KVCentralStatePoweredOff;
    console_.note(off ? "the Bluetooth adapter is off"
                      : "the Bluetooth service or the adapter went away");
  }
  examine();
}

// Why the adapter is not on, unless the run can go on without it.
void Session::examine() {
  if (diagnosis_ || on_ || (!ready_ && adapterMayFail_)) return;
  diagnosis_ = radio_.diagnose([this](const auto& findings) { examined(findings); });
}

void Session::examined(const std::vector<KVFinding>& findings) {
  if (finished() || on_ || (!ready_ && adapterMayFail_)) return;
  const auto wrong = std::find_if(findings.begin(), findings.end(), [](const KVFinding& finding) {
    return finding.verdict == KVVerdict::Unusable;
  });
  const auto age = daemonAge();
  const bool starting = age && *age < kSettled;
  const bool missed = wrong != findings.end() && wrong->topic == "service" && !age;
  if (!missed) missedSince_ = -1ns;
  if (missed && missedSince_ < 0ns) missedSince_ = loop_.queue().now();
  const bool restarting = missed && loop_.queue().now() - missedSince_ < kRestart;
  if (wrong != findings.end() && !starting && !restarting) return finish(unusable(*wrong));
  after(kLookAgain, [this] {
    diagnosis_.reset();
    examine();
  });
}

void Session::after(Duration delay, std::function<void()> task) {
  loop_.queue().postAfter(delay, [this, alive = std::weak_ptr(alive_), task = std::move(task)] {
    if (!alive.expired() && !finished()) task();
  });
}

void Session::dropInTheEnd(std::shared_ptr<KVTracker> tracker) {
  trackers_.push_back(std::move(tracker));
}

void Session::finish(Outcome outcome) {
  if (finished()) return;
  outcome_ = std::move(outcome);
}

void Session::letGo(KVTracker& tracker) {
  tracker.didConnectionChange({});
  tracker.didValueUpdate({});
  tracker.didReceive({});
}

void Session::dropLinks() {
  for (const auto& tracker : trackers_) {
    manager_->disconnect(tracker);
    // A bound one would be connected again.
    manager_->removeTracker(tracker->mac());
  }
}

bool Session::linksDown() const {
  return std::all_of(trackers_.begin(), trackers_.end(), [](const auto& tracker) {
    return !tracker->peripheral() ||
           tracker->peripheral()->state() == KVPeripheralStateDisconnected;
  });
}

Outcome Session::run() {
  loop_.runUntil([this] { return finished() || loop_.signal() != 0 || !console_.good(); });
  if (loop_.signal() != 0) finish({kSignal + loop_.signal(), ""});
  if (!console_.good()) finish(console_.outputLost());
  if (const auto task = std::exchange(atEnd_, {})) task();
  manager_->stopScan();
  for (const auto& tracker : trackers_) letGo(*tracker);
  if (!keeps_ || outcome_->code != kDone) endLinks();
  return *outcome_;
}

void Session::endLinks() {
  dropLinks();
  loop_.runUntil([this] { return linksDown(); }, kDropPatience);
  trackers_.clear();
}

bool Session::begin() {
  if (!linked()) return false;
  outcome_.reset();
  return true;
}

std::shared_ptr<KVTracker> Session::linked() const {
  const bool up = !trackers_.empty() && trackers_.back()->connection() == KVConnectionConnected;
  return up ? trackers_.back() : nullptr;
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/radio/session.h"

#include <algorithm>
#include <utility>

namespace kvfob {
namespace {

using namespace std::chrono_literals;

// The Bluetooth service may just be starting; on a busy machine it takes seconds to answer.
constexpr Session::Duration kAdapterPatience = 10s;
constexpr Session::Duration kAdapterHint = 2s;
// BlueZ takes about two seconds to end a link.
constexpr auto kDropPatience = 6s;

// Why an adapter in this state is of no use; absent while that is not known.
std::optional<std::string> adapterTrouble(std::uint64_t state) {
  switch (state) {
    case KVCentralStateUnsupported:
      return "there is no Bluetooth adapter; plug one in, or check --adapter";
    case KVCentralStateUnauthorized:
      return "using Bluetooth is not permitted; run as a user who may, such as one of the group "
             "bluetooth";
    case KVCentralStatePoweredOff:
      return "the Bluetooth adapter is off; switch it on with \"bluetoothctl power on\"";
    default:
      return std::nullopt;
  }
}

}  // namespace

Session::Session(Loop& loop, Console& console)
    : loop_(loop), console_(console), manager_(std::make_shared<KVTrackerManager>()) {
  manager_->didChangeBluetooth([this](std::int64_t) { adapterChanged(); });
}

Session::~Session() { manager_->didChangeBluetooth({}); }

void Session::whenOn(std::function<void()> ready, Duration patience) {
  ready_ = std::move(ready);
  after(kAdapterHint, [this] {
    if (ready_) console_.note("waiting for the Bluetooth service");
  });
  after(std::min(patience, kAdapterPatience), [this] {
    if (ready_) {
      finish(
          {kNoAdapter,
           "the Bluetooth service does not answer; start it with \"systemctl start bluetooth\""});
    }
  });
  adapterChanged();
}

void Session::adapterChanged() {
  if (finished()) return;
  const auto state = manager_->bleState();
  const bool was = std::exchange(on_, state == KVCentralStatePoweredOn);
  if (on_) {
    if (auto ready = std::exchange(ready_, {})) {
      ready();
    } else if (!was) {
      console_.note("the Bluetooth adapter is on");
    }
    return;
  }
  const bool begun = !ready_;
  auto trouble = adapterTrouble(state);
  if (!trouble && begun) trouble = "the Bluetooth service or the adapter went away";
  if (!trouble) return;
  if (begun && adapterMayFail_) {
    console_.note(*trouble);
  } else {
    finish({kNoAdapter, *trouble});
  }
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

void Session::dropLinks() {
  manager_->stopScan();
  for (const auto& tracker : trackers_) {
    tracker->didConnectionChange({});
    tracker->didValueUpdate({});
    tracker->didReceive({});
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
  dropLinks();
  loop_.runUntil([this] { return linksDown(); }, kDropPatience);
  return *outcome_;
}

}  // namespace kvfob

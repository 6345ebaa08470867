// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "tracker/rssi_poller.h"

#include <utility>

namespace kv {
namespace {

constexpr std::chrono::seconds kInterval(3);

}  // namespace

void RssiPoller::setPeripheral(std::shared_ptr<KVPeripheral> peripheral) {
  {
    const std::lock_guard lock(mutex_);
    std::swap(peripheral_, peripheral);
  }
  // The old handle is released here, outside the lock.
}

void RssiPoller::start(KVTimerThreads& timers) {
  // The old timer has ended before the new one exists, so a late tick of it cannot stop the new
  // one.
  stop();
  auto timer = timers.start(kInterval, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->tick();
  });
  const std::lock_guard lock(mutex_);
  timer_ = std::move(timer);
}

void RssiPoller::stop() {
  std::shared_ptr<KVTimerThread> ended;
  {
    const std::lock_guard lock(mutex_);
    ended = std::exchange(timer_, nullptr);
  }
  // Outside the lock: it waits for a tick in progress, which may be about to take the lock.
  if (ended) ended->cancel();
}

void RssiPoller::tick() {
  std::shared_ptr<KVPeripheral> peripheral;
  {
    const std::lock_guard lock(mutex_);
    peripheral = peripheral_;
  }
  if (peripheral && peripheral->state() == KVPeripheralStateConnected) {
    peripheral->readRSSI();
  } else {
    stop();
  }
}

std::shared_ptr<KVTimerThread> RssiPoller::timer() const {
  const std::lock_guard lock(mutex_);
  return timer_;
}

}  // namespace kv

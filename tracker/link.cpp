// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "tracker/link.h"

#include <utility>

namespace kv {
namespace {

constexpr std::chrono::seconds kBindTimeout(30);

}  // namespace

void TrackerLink::updateConnection(std::uint64_t value) {
  connection = value;
  if (bound) connectionBlock(value);
}

void TrackerLink::leave(std::int64_t newState) {
  if (newState == KVTrackerStateDisconnected) {
    updateConnection(KVConnectionDisconnect);
    poller->stop();
  } else if (newState == KVTrackerStateConnecting) {
    updateConnection(KVConnectionConnecting);
  }
}

void TrackerLink::setBinding(bool value, const Services& services, std::weak_ptr<TrackerLink> self,
                             std::shared_ptr<const void> kept) {
  binding = value;
  if (!value) return;
  services.queue.postAfter(kBindTimeout, [self = std::move(self), kept = std::move(kept)] {
    if (const auto link = self.lock()) link->bindTimedOut();
  });
}

bool TrackerLink::endBinding() {
  if (!binding || !bindingBlock) return false;
  binding = false;
  return true;
}

void TrackerLink::bindTimedOut() {
  if (!endBinding()) return;
  bindingBlock(false, KVError{"Error! Binding Timeout.", 400, std::nullopt});
}

}  // namespace kv

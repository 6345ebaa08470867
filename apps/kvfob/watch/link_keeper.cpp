// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/watch/link_keeper.h"

#include <utility>

namespace kvfob {
namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 30s;

}  // namespace

LinkKeeper::LinkKeeper(Session& session, std::shared_ptr<KVTracker> tracker,
                       std::function<void()> again)
    : session_(session), tracker_(std::move(tracker)), again_(std::move(again)) {
  look();
}

void LinkKeeper::look() {
  session_.after(1s, [this, alive = std::weak_ptr(alive_)] {
    if (!alive.expired()) look();
  });
  const auto now = session_.loop().queue().now();
  const bool halfway = tracker_->connection() == KVConnectionConnecting &&
                       tracker_->state() == KVTrackerStateConnected;
  if (!halfway) {
    since_.reset();
  } else if (!since_) {
    since_ = now;
  } else if (now - *since_ >= kPatience) {
    since_.reset();
    session_.manager().disconnect(tracker_);
    again_();
  }
}

}  // namespace kvfob

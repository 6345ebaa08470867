// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/radio/held_tag.h"

namespace kvfob {

HeldTag::HeldTag(Session& session, std::shared_ptr<KVTracker> tracker)
    : session_(session), tracker_(std::move(tracker)) {
  session_.dropInTheEnd(tracker_);
}

HeldTag::HeldTag(Session& session, const std::string& address, const Secret& password)
    : HeldTag(session, take(session, address, password)) {}

HeldTag::~HeldTag() {
  tracker_->didConnectionChange({});
  tracker_->didValueUpdate({});
  tracker_->didReceive({});
  auto& manager = session_.manager();
  manager.disconnect(tracker_);
  manager.removeTracker(tracker_->mac());
  manager.startScan([](const KVTrackers&) {});
}

std::shared_ptr<KVTracker> HeldTag::take(Session& session, const std::string& address,
                                         const Secret& password) {
  auto& manager = session.manager();
  manager.setPassword(password.text());
  auto tracker = manager.addTracker(address);
  // One that was scanned is still as it was.
  tracker->setPassword(password.text());
  tracker->setBound(true);
  return tracker;
}

}  // namespace kvfob

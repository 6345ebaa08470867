// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A tag that is taken out of a scan for a while.
#ifndef APPS_KVFOB_RADIO_HELD_TAG_H
#define APPS_KVFOB_RADIO_HELD_TAG_H

#include <memory>
#include <string>
#include <utility>

#include "KVFobLink/KVFobLink.h"
#include "apps/kvfob/base/secret.h"
#include "apps/kvfob/radio/session.h"

namespace kvfob {

/// Holds a tracker; in the end its link is dropped, the tag is one of the scanned ones again as
/// soon as it is heard, and the scan goes on.
class HeldTag {
 public:
  /// As it is, in order to bind it.
  HeldTag(Session& session, std::shared_ptr<KVTracker> tracker);

  /// As one that is bound with this password: it is connected as soon as it is heard.
  HeldTag(Session& session, const std::string& address, const Secret& password);

  ~HeldTag();
  HeldTag(const HeldTag&) = delete;
  HeldTag& operator=(const HeldTag&) = delete;

  const std::shared_ptr<KVTracker>& tracker() const { return tracker_; }

 private:
  static std::shared_ptr<KVTracker> take(Session& session, const std::string& address,
                                         const Secret& password);

  Session& session_;
  const std::shared_ptr<KVTracker> tracker_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_RADIO_HELD_TAG_H

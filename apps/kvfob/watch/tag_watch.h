// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Watching a tag in the middle of a scan.
#ifndef APPS_KVFOB_WATCH_TAG_WATCH_H
#define APPS_KVFOB_WATCH_TAG_WATCH_H

#include <functional>
#include <string>

#include "apps/kvfob/base/secret.h"
#include "apps/kvfob/radio/held_tag.h"
#include "apps/kvfob/watch/link_keeper.h"
#include "apps/kvfob/watch/watch_screen.h"

namespace kvfob {

/// The tag's screen, for as long as it lives; the scan pauses while there is a link.
class TagWatch {
 public:
  /// @param leave  Called when the user has seen enough; it must not drop this at once.
  TagWatch(Session& session, const std::string& address, const Secret& password, std::string name,
           std::function<void()> leave);

 private:
  void connectionChanged(std::uint64_t connection);

  Session& session_;
  HeldTag held_;
  std::uint64_t reported_ = KVConnectionDisconnect;
  WatchScreen screen_;
  LinkKeeper keeper_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_WATCH_TAG_WATCH_H

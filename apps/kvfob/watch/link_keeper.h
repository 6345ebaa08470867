// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_WATCH_LINK_KEEPER_H
#define APPS_KVFOB_WATCH_LINK_KEEPER_H

#include <functional>
#include <memory>
#include <optional>

#include "apps/kvfob/radio/session.h"

namespace kvfob {

/// Looks after a watched tag: a link that is up for 30 seconds and does not get ready is ended, and
/// begun again by the library. By itself the library would wait for ever.
class LinkKeeper {
 public:
  /// @param again  Called each time, to tell the user.
  LinkKeeper(Session& session, std::shared_ptr<KVTracker> tracker, std::function<void()> again);
  LinkKeeper(const LinkKeeper&) = delete;
  LinkKeeper& operator=(const LinkKeeper&) = delete;

 private:
  void look();

  Session& session_;
  const std::shared_ptr<KVTracker> tracker_;
  const std::function<void()> again_;
  std::optional<KVEventQueue::Duration> since_;  // when the link was first seen up
  const std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
};

/// What the user is told.
inline constexpr const char* kBegunAgain = "no handshake for 30 s: the link is begun again";

}  // namespace kvfob

#endif  // APPS_KVFOB_WATCH_LINK_KEEPER_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/watch/tag_watch.h"

#include <utility>

namespace kvfob {

TagWatch::TagWatch(Session& session, const std::string& address, const Secret& password,
                   std::string name, std::function<void()> leave)
    : session_(session),
      held_(session, address, password),
      screen_(session, held_.tracker(), std::move(name), std::move(leave)),
      keeper_(session, held_.tracker(), [this] { screen_.log(kBegunAgain); }) {
  const auto& tracker = held_.tracker();
  tracker->didConnectionChange([this](std::uint64_t value) { connectionChanged(value); });
  tracker->didReceive([this](std::int64_t event) {
    event == 1 ? screen_.logPress() : screen_.log("event " + std::to_string(event));
  });
  tracker->didValueUpdate([this] {
    if (held_.tracker()->connection() == KVConnectionConnected) screen_.measured();
  });
}

void TagWatch::connectionChanged(std::uint64_t connection) {
  if (connection == KVConnectionConnecting) session_.manager().stopScan();
  // Some values are reported twice.
  if (std::exchange(reported_, connection) == connection) return;
  switch (connection) {
    case KVConnectionConnected:
      return screen_.log("connected");
    case KVConnectionConnecting:
      return screen_.log("connecting");
    case KVConnectionVerifyFailed:
      return screen_.log("the tag refused the password");
    default:
      return screen_.log("connection lost");
  }
}

}  // namespace kvfob

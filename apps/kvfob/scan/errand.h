// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A command on one tag in the middle of a scan.
#ifndef APPS_KVFOB_SCAN_ERRAND_H
#define APPS_KVFOB_SCAN_ERRAND_H

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "KVFobLink/KVFobLink.h"
#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/base/secret.h"
#include "apps/kvfob/radio/held_tag.h"
#include "apps/kvfob/radio/session.h"

namespace kvfob {

enum class ErrandKind { Ring, Silence, Bind };

/// Connects to the tag, does one thing and lets go of it. The scan pauses meanwhile. Dropped before
/// its end, it is given up.
class Errand {
 public:
  using Done = std::function<void(const Outcome& outcome)>;

  /// @param patience  How long all of it may take.
  /// @param done      Called once, and never inside an operation of this; it may drop this. The
  ///                  message of a failure says what is wrong, but not with which tag.
  Errand(Session& session, ErrandKind kind, std::string address, Secret password,
         std::chrono::milliseconds patience, Done done);

  ErrandKind kind() const { return kind_; }
  const std::string& address() const { return address_; }
  const Secret& password() const { return password_; }

 private:
  void bind();
  void connect();
  void connectionChanged(std::uint64_t connection);
  void answered(bool success, const std::optional<KVError>& error);
  void finish(Outcome outcome);

  Session& session_;
  const ErrandKind kind_;
  const std::string address_;
  const Secret password_;
  const Done done_;
  std::unique_ptr<HeldTag> held_;
  bool connecting_ = false;
  bool asked_ = false;
  bool finished_ = false;
  const std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
};

}  // namespace kvfob

#endif  // APPS_KVFOB_SCAN_ERRAND_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The commands on one tag: find it, connect or bind it, and do what was asked.
#ifndef APPS_KVFOB_COMMANDS_TAG_RUN_H
#define APPS_KVFOB_COMMANDS_TAG_RUN_H

#include <functional>
#include <memory>
#include <string>

#include "KVFobLink/KVFobLink.h"
#include "apps/kvfob/base/json.h"
#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/radio/session.h"
#include "apps/kvfob/terminal/password.h"
#include "apps/kvfob/watch/link_keeper.h"
#include "apps/kvfob/watch/watch_screen.h"

namespace kvfob {

class TagRun {
 public:
  /// @param password  Asked for the tag's once Bluetooth is there.
  /// @param name      The user's for the tag; empty for none.
  TagRun(Session& session, const Options& options, std::function<PasswordResult()> password,
         std::string name);

  /// Runs the command to its end.
  Outcome run();

  /// Whether the tag may have been sent anything.
  bool asked() const { return asked_; }

 private:
  enum class Stage { Searching, Connecting, Asking, Watching };

  void begin();
  void goOn();
  void openScreen();
  void search();
  void scanned(const KVTrackers& trackers);
  void bind(const std::shared_ptr<KVTracker>& tracker);
  void connectionChanged(std::uint64_t connection);
  void connected();
  void act();
  void answered(bool success, const std::optional<KVError>& error);
  void searchAnew();
  void timedOut();

  void watch();
  void reportConnection(std::uint64_t connection);
  void reportEvent(std::int64_t event);
  void reportSignal();
  void report(const std::string& what, Json event);

  Session& session_;
  const Options& options_;
  const std::function<PasswordResult()> password_;
  const std::string name_;
  std::unique_ptr<WatchScreen> screen_;  // of `watch` on a terminal
  std::shared_ptr<KVTracker> tracker_;
  std::unique_ptr<LinkKeeper> keeper_;  // of `watch`
  Stage stage_ = Stage::Searching;
  bool asked_ = false;
  std::uint64_t reported_ = KVConnectionDisconnect;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_COMMANDS_TAG_RUN_H

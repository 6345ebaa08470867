// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The commands on one tag: find it, connect or bind it, and do what was asked.
#ifndef APPS_KVFOB_COMMANDS_TAG_RUN_H
#define APPS_KVFOB_COMMANDS_TAG_RUN_H

#include <memory>
#include <string>

#include "KVFobLink/KVFobLink.h"
#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/radio/session.h"
#include "apps/kvfob/terminal/password.h"
#include "apps/kvfob/watch/link_keeper.h"
#include "apps/kvfob/watch/watch_screen.h"

namespace kvfob {

class TagRun {
 public:
  /// @param name  The user's for the tag; empty for none.
  TagRun(Session& session, const Options& options, const Secret& password, std::string name);

  /// Runs the command to its end.
  Outcome run();

 private:
  enum class Stage { Searching, Connecting, Asking, Watching };

  void search();
  void scanned(const KVTrackers& trackers);
  void bind(const std::shared_ptr<KVTracker>& tracker);
  void connectionChanged(std::uint64_t connection);
  void connected();
  void act();
  void answered(bool success, const std::optional<KVError>& error);
  void timedOut();

  void watch();
  void reportConnection(std::uint64_t connection);
  void reportEvent(std::int64_t event);
  void reportSignal();
  void report(const std::string& what);

  Session& session_;
  const Options& options_;
  const std::string name_;
  std::unique_ptr<WatchScreen> screen_;  // of `watch` on a terminal
  std::shared_ptr<KVTracker> tracker_;
  std::unique_ptr<LinkKeeper> keeper_;  // of `watch`
  Stage stage_ = Stage::Searching;
  std::uint64_t reported_ = KVConnectionDisconnect;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_COMMANDS_TAG_RUN_H

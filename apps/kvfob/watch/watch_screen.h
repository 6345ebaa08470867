// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_WATCH_WATCH_SCREEN_H
#define APPS_KVFOB_WATCH_WATCH_SCREEN_H

#include <functional>
#include <memory>
#include <string>

#include "apps/kvfob/radio/session.h"
#include "apps/kvfob/terminal/screen.h"
#include "apps/kvfob/watch/sent_commands.h"
#include "apps/kvfob/watch/watch_view.h"

namespace kvfob {

/// A watched tag on the terminal, and the commands that keys give it.
class WatchScreen {
 public:
  /// @param name   The user's for the tag; empty for none.
  /// @param leave  Called when the user has seen enough; absent ends the run.
  WatchScreen(Session& session, std::shared_ptr<KVTracker> tracker, std::string name,
              std::function<void()> leave = {});
  ~WatchScreen();
  WatchScreen(const WatchScreen&) = delete;
  WatchScreen& operator=(const WatchScreen&) = delete;

  void log(const std::string& what);
  void logPress();
  /// The live link's strength was read.
  void measured();

 private:
  void typed(const Key& key);
  void typedInDelay(const Key& key);
  void command(char key);
  void sendDelay(std::int64_t delay);
  /// Whether a command of the kind can be sent now; else the user is told why not.
  bool ready(CommandKind kind);
  /// Takes a command's answer: `apply` notes in the view what the tag has been told.
  KVResultCallback send(CommandKind kind, const std::string& what, std::function<void()> apply);
  void tick();
  void draw();
  void add(const std::string& what, Style style);
  void refresh();
  void refreshLink();
  std::chrono::milliseconds elapsed() const;

  Session& session_;
  const std::shared_ptr<KVTracker> tracker_;
  const std::function<void()> leave_;
  const KVEventQueue::Duration start_;
  WatchView view_;
  SentCommands sent_;
  // A tag may answer when this has gone.
  const std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
  Screen screen_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_WATCH_WATCH_SCREEN_H

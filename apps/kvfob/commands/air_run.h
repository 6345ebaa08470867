// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_COMMANDS_AIR_RUN_H
#define APPS_KVFOB_COMMANDS_AIR_RUN_H

#include <memory>
#include <string>

#include "KVFobSimulator/AirTag.h"
#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/base/json.h"
#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/terminal/console.h"
#include "apps/kvfob/terminal/loop.h"
#include "apps/kvfob/terminal/password.h"

namespace kvfob {

/// A virtual tag on the air: one line for each thing that happens to it, and commands on standard
/// input.
class AirRun {
 public:
  /// `loop` runs `queue`. An empty password makes an unbound tag.
  AirRun(std::shared_ptr<KVLinuxEventQueue> queue, Loop& loop, Console& console,
         const Options& options, const Secret& password);

  /// Runs until "quit" or a signal; not for longer than the time-out if the tag has not been on the
  /// air by then.
  Outcome run();

 private:
  bool ended() const;
  void say(const char* event, const std::string& text, const Json& facts = Json::object());
  void stateChanged(kvsim::AirState state, const std::string& reason);
  void tagEvent(const kvsim::TagEvent& event);
  void readInput();
  void execute(const std::string& line);

  const std::shared_ptr<KVLinuxEventQueue> queue_;
  Loop& loop_;
  Console& console_;
  const std::chrono::milliseconds patience_;
  const bool json_;
  kvsim::AirTag tag_;
  std::unique_ptr<KVLinuxEventQueue::Watch> input_;
  std::string typed_;
  bool everOnAir_ = false;
  bool hinted_ = false;  // the user has been told what is waited for
  bool quit_ = false;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_COMMANDS_AIR_RUN_H

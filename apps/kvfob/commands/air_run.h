// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_COMMANDS_AIR_RUN_H
#define APPS_KVFOB_COMMANDS_AIR_RUN_H

#include <memory>
#include <string>

#include "KVFobSimulator/AirTag.h"
#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/terminal/console.h"
#include "apps/kvfob/terminal/loop.h"
#include "apps/kvfob/terminal/password.h"

namespace kvfob {

/// A virtual tag on the air: one line for each thing that happens to it, and commands on
/// standard input.
class AirRun {
 public:
  /// `loop` runs `queue`. An empty password makes an unbound tag.
  AirRun(std::shared_ptr<KVLinuxEventQueue> queue, Loop& loop, Console& console,
         const Options& options, const Secret& password);

  Outcome run();

 private:
  void stateChanged(kvsim::AirState state, const std::string& reason);
  void tagEvent(const kvsim::TagEvent& event);
  void readInput();
  void execute(const std::string& line);

  const std::shared_ptr<KVLinuxEventQueue> queue_;
  Loop& loop_;
  Console& console_;
  const std::chrono::milliseconds patience_;
  kvsim::AirTag tag_;
  std::unique_ptr<KVLinuxEventQueue::Watch> input_;
  std::string typed_;
  bool everOnAir_ = false;
  bool quit_ = false;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_COMMANDS_AIR_RUN_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Every operation on a virtual tag, from its first advertisement to its release.
#ifndef APPS_KVFOB_DEMO_DEMO_H
#define APPS_KVFOB_DEMO_DEMO_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "KVFobLink/KVFobLink.h"
#include "KVFobSimulator/SimulatedRadio.h"
#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/terminal/console.h"
#include "apps/kvfob/terminal/loop.h"

namespace kvfob {

/// Performs them step by step on a simulated radio, shows what goes over the air, and checks each
/// step against the tag's own state, not only against what the library says.
class Demo {
 public:
  /// @param radio  The radio to use, whose platform is in force.
  /// @param loop   Runs that radio's queue; absent when the radio has a virtual clock.
  Demo(kvsim::SimulatedRadio& radio, Loop* loop, Console& console);
  ~Demo();
  Demo(const Demo&) = delete;
  Demo& operator=(const Demo&) = delete;

  /// The tag that the demo drives, to tamper with before the run.
  kvsim::VirtualTag& tag() { return *tag_; }

  /// Success, a signal, or an internal error that names the step that failed.
  Outcome run();

 private:
  using Millis = std::chrono::milliseconds;

  struct Step {
    const char* title;
    const char* meaning;
    /// Empty once the step has done what it should, else what is wrong.
    std::string (Demo::*go)();
  };

  std::string scan();
  std::string levels();
  std::string refusedPassword();
  std::string bind();
  std::string ring();
  std::string silence();
  std::string alert();
  std::string delay();
  std::string distance();
  std::string liveRssi();
  std::string button();
  std::string reconnect();
  std::string unbind();

  bool wait(const std::function<bool()>& condition, Millis most = Millis(5000));
  /// Sends a command and waits for its answer; empty for success.
  std::string ask(const std::function<void(KVResultCallback)>& command);
  std::string tryBind();
  void show(const kvsim::TagEvent& event);
  void show(const std::string& line);
  bool runStep(unsigned number, const Step& step, Outcome& outcome);

  kvsim::SimulatedRadio& radio_;
  Loop* const loop_;
  Console& console_;
  std::shared_ptr<kvsim::VirtualTag> tag_;
  std::shared_ptr<KVTrackerManager> manager_;
  std::shared_ptr<KVTracker> tracker_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_DEMO_DEMO_H

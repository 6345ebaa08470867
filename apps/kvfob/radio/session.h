// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// One run of the program against a radio.
#ifndef APPS_KVFOB_RADIO_SESSION_H
#define APPS_KVFOB_RADIO_SESSION_H

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "KVFobLink/KVFobLink.h"
#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/radio/radio.h"
#include "apps/kvfob/terminal/console.h"
#include "apps/kvfob/terminal/loop.h"

namespace kvfob {

/// Runs the event queue until a command has ended, and leaves the radio as it found it: the scan
/// ended, the links dropped.
class Session {
 public:
  using Duration = std::chrono::milliseconds;

  /// Makes a manager on the radio, which is in force, and whose event queue `loop` runs.
  Session(const Radio& radio, Loop& loop, Console& console);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  KVTrackerManager& manager() { return *manager_; }
  Console& console() { return console_; }
  Loop& loop() { return loop_; }

  /// Calls `ready` once the adapter is on. When it is not and will not be by itself, the run ends
  /// with `kNoAdapter` and what is wrong; a service that has only just been started is waited for,
  /// at most as long as `patience`.
  void whenOn(std::function<void()> ready, Duration patience);

  /// From now on the run goes on when the adapter is switched off; the user is told.
  void surviveAdapter() { adapterMayFail_ = true; }

  /// Calls `task` after `delay`, unless the run has ended by then.
  void after(Duration delay, std::function<void()> task);

  /// Sees to it that this tag's link is dropped in the end.
  void dropInTheEnd(std::shared_ptr<KVTracker> tracker);

  /// From now on a run that succeeds leaves the link up, for the next one.
  void keepLink() { keeps_ = true; }

  /// Makes ready for another run; false when the last one left no link that could be kept.
  bool begin();

  /// The tag whose link an earlier run has kept; null for none.
  std::shared_ptr<KVTracker> linked() const;

  /// Calls `task` as soon as the run has ended, before its links are dropped.
  void atEnd(std::function<void()> task) { atEnd_ = std::move(task); }

  /// Ends the run; only the first call counts.
  void finish(Outcome outcome);

  bool finished() const { return outcome_.has_value(); }

  /// Runs until `finish`, or a signal, and returns how the run ended.
  Outcome run();

 private:
  void adapterChanged();
  void examine();
  void examined(const std::vector<KVFinding>& findings);
  static void letGo(KVTracker& tracker);
  void endLinks();
  void dropLinks();
  bool linksDown() const;

  const Radio& radio_;
  Loop& loop_;
  Console& console_;
  std::shared_ptr<KVTrackerManager> manager_;
  std::function<void()> ready_;
  std::function<void()> atEnd_;
  std::shared_ptr<KVLinuxDiagnosis> diagnosis_;
  KVEventQueue::Duration missedSince_{-1};  // the service; below zero: it is not missed
  bool keeps_ = false;
  bool adapterMayFail_ = false;
  bool on_ = false;
  std::vector<std::shared_ptr<KVTracker>> trackers_;
  std::optional<Outcome> outcome_;
  const std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
};

}  // namespace kvfob

#endif  // APPS_KVFOB_RADIO_SESSION_H

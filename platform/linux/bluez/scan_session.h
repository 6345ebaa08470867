// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Our share of the adapter's discovery.
#ifndef PLATFORM_LINUX_BLUEZ_SCAN_SESSION_H
#define PLATFORM_LINUX_BLUEZ_SCAN_SESSION_H

#include <chrono>
#include <functional>
#include <string>

#include "platform/linux/bluez/context.h"
#include "platform/linux/bus/connection.h"

namespace kv {

/// Brings discovery to what is wanted of it and keeps it there. Event thread.
class ScanSession {
 public:
  explicit ScanSession(Context& context);

  /// The adapter that is on now; empty when there is none. Ends discovery without a word; whether
  /// it is wanted on this one must be told afterwards.
  void setAdapter(const std::string& path);

  /// Whether discovery is wanted.
  void setWanted(bool wanted);

  /// Halts discovery if `halt`; `halted` is called once it has stopped or can be disregarded, never
  /// inside this call. `resume` ends that.
  void pause(bool halt, std::function<void()> halted);
  void resume();

  /// An advertisement of any device was heard.
  void heard() { heardSinceCheck_ = true; }
  /// The adapter says whether it discovers at all, for us or for others.
  void setDiscovering(bool discovering);

  /// Ends discovery without waiting for an answer.
  void close();

 private:
  enum class Phase { Off, Starting, On, Stopping };

  void reconcile();
  void start();
  void started(const BusFault& error);
  void stop();
  void stopped();
  void restart(const std::string& why);
  void tellHalted();
  void watch();

  Context& context_;
  std::string adapter_;
  bool wanted_ = false;
  bool paused_ = false;
  bool discovering_ = false;
  bool heardSinceCheck_ = false;
  Phase phase_ = Phase::Off;
  int failures_ = 0;
  std::function<void()> halted_;
  BusSlot filterCall_;
  BusSlot call_;
  Timer retry_;
  Timer watchdog_;
  Timer gap_;
  Timer haltLimit_;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_SCAN_SESSION_H

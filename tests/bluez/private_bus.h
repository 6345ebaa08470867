// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A message bus of a test's own.
#ifndef TESTS_BLUEZ_PRIVATE_BUS_H
#define TESTS_BLUEZ_PRIVATE_BUS_H

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "KVFobLink/KVLinuxPlatform.h"
#include "platform/linux/owned_fd.h"

namespace kvtest {

/// A service that the bus could start, in vain.
inline constexpr const char* kIdleService = "org.kvfob.Idle";

/// Runs a dbus-daemon in a new directory for as long as it lives.
class PrivateBus {
 public:
  PrivateBus();
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  /// Empty if the daemon did not start.
  const std::string& address() const { return address_; }

  /// Ends the daemon, as when the system's bus is restarted; `start` brings it back where it
  /// was.
  void stop();
  void start();

 private:
  std::string directory_;
  std::string address_;
  pid_t daemon_ = -1;
};

/// A bus that takes connections, but lets nobody in.
class RejectingBus {
 public:
  explicit RejectingBus(KVLinuxEventQueue& queue);
  ~RejectingBus();
  const std::string& address() const { return address_; }

 private:
  std::string path_;
  std::string address_;
  kv::OwnedFd listener_;
  std::vector<kv::OwnedFd> clients_;
  std::unique_ptr<KVLinuxEventQueue::Watch> watch_;
};

}  // namespace kvtest

#endif  // TESTS_BLUEZ_PRIVATE_BUS_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What the parts of the BlueZ central share.
#ifndef PLATFORM_LINUX_BLUEZ_CONTEXT_H
#define PLATFORM_LINUX_BLUEZ_CONTEXT_H

#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>

#include "KVFobLink/KVLinuxPlatform.h"
#include "KVFobLink/KVPlatform.h"
#include "platform/linux/bluez/timing.h"
#include "platform/linux/bus/weak_queue.h"

namespace kv {

class Daemon;

/// One for each central; it outlives all the parts that refer to it.
struct Context {
  WeakLinuxQueue queue;
  std::shared_ptr<KVLog> logSink;
  KVBlueZOptions options;
  BlueZTiming timing;
  Daemon* daemon = nullptr;
  /// False once the central is gone: events that are still queued are then dropped.
  std::shared_ptr<bool> open = std::make_shared<bool>(true);

  std::minstd_rand random{std::random_device{}()};

  void log(const std::string& line) const {
    if (logSink) logSink->write("bluez: " + line);
  }
};

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_CONTEXT_H

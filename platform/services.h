// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What a tracker and a manager keep of the platform that they were made with.
#ifndef PLATFORM_SERVICES_H
#define PLATFORM_SERVICES_H

#include <memory>

#include "KVFobLink/KVPlatform.h"
#include "platform/weak_queue.h"

namespace kv {

/// The parts of a platform, but only a weak hold on its event queue, whose tasks hold trackers and
/// managers.
struct Services {
  explicit Services(const KVPlatform& platform)
      : queue(platform.eventQueue),
        cipher(platform.cipher),
        random(platform.random),
        timers(platform.timers),
        clock(platform.clock),
        log(platform.log) {}

  WeakQueue queue;
  std::shared_ptr<KVCipher> cipher;
  std::shared_ptr<KVRandom> random;
  std::shared_ptr<KVTimerThreads> timers;
  std::shared_ptr<KVClock> clock;
  std::shared_ptr<KVLog> log;
};

}  // namespace kv

#endif  // PLATFORM_SERVICES_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobLink/KVLinuxPlatform.h"

#include <unistd.h>

#include <cstdlib>

#include "platform/default_platform.h"
#include "platform/linux/bluez/radio.h"
#include "platform/linux/cipher.h"
#include "platform/linux/event_queue.h"
#include "platform/linux/log.h"
#include "platform/linux/pattern_matcher.h"
#include "platform/linux/settings.h"
#include "platform/linux/timer_threads.h"

namespace kv {
namespace {

class Random : public KVRandom {
 public:
  void fill(std::span<std::uint8_t> bytes) override { arc4random_buf(bytes.data(), bytes.size()); }
};

class SystemClock : public KVClock {
 public:
  std::chrono::system_clock::time_point now() const override {
    return std::chrono::system_clock::now();
  }
};

}  // namespace

std::shared_ptr<KVPlatform> makeDefaultPlatform() { return KVLinuxPlatform::make(); }

}  // namespace kv

std::shared_ptr<KVPlatform> KVLinuxPlatform::makeWith(const KVLinuxSettings& settings) {
  const KVLinuxOptions& options = settings.data().options;
  auto platform = std::make_shared<KVPlatform>();
  platform->log = options.log ? std::shared_ptr<KVLog>(std::make_shared<kv::SinkLog>(options.log))
                              : std::make_shared<kv::FdLog>(STDERR_FILENO);
  platform->eventQueue = makeEventQueue();
  platform->radio = kv::makeBlueZRadio(options.bluez, platform->log);
  platform->cipher = std::make_shared<kv::Cipher>();
  platform->random = std::make_shared<kv::Random>();
  platform->patterns = std::make_shared<kv::PatternMatcher>();
  platform->timers = std::make_shared<kv::TimerThreads>();
  platform->clock = std::make_shared<kv::SystemClock>();
  return platform;
}

std::shared_ptr<KVLinuxEventQueue> KVLinuxPlatform::makeEventQueue() {
  return std::make_shared<kv::EventQueue>();
}

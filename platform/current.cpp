// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include "KVFobLink/KVPlatform.h"
#include "platform/default_platform.h"

namespace {

struct Installed {
  std::mutex mutex;
  std::shared_ptr<const KVPlatform> platform;         // that of `setCurrent`
  std::shared_ptr<const KVPlatform> defaultPlatform;  // made at first need
};

// Never destroyed, because the objects of other translation units may outlive this one.
Installed& installed() {
  static Installed& instance = *new Installed;
  return instance;
}

// What `current` returns, so that it costs one load; null until it has been asked for.
std::atomic<const KVPlatform*> inForce = nullptr;

}  // namespace

const KVPlatform& KVPlatform::current() {
  if (const KVPlatform* platform = inForce.load(std::memory_order_acquire)) return *platform;
  return *shared();
}

std::shared_ptr<const KVPlatform> KVPlatform::shared() {
  Installed& all = installed();
  const std::lock_guard lock(all.mutex);
  if (!all.platform) {
    if (!all.defaultPlatform) all.defaultPlatform = kv::makeDefaultPlatform();
    all.platform = all.defaultPlatform;
  }
  inForce.store(all.platform.get(), std::memory_order_release);
  return all.platform;
}

void KVPlatform::setCurrent(std::shared_ptr<const KVPlatform> platform) {
  Installed& all = installed();
  const std::lock_guard lock(all.mutex);  // released before the replaced platform is destroyed
  inForce.store(platform.get(), std::memory_order_release);
  all.platform.swap(platform);
}

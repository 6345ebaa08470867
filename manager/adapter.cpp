// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The manager's life, and the state of the Bluetooth adapter.
#include <array>
#include <string>

#include "manager/core.h"
#include "platform/wipe.h"

namespace {

// "Unautorized" is how the log has always spelled it.
constexpr std::array<std::string_view, 6> kStateNames{"Unknown",     "Resetting", "Unsupported",
                                                      "Unautorized", "Poweroff",  "Poweron"};

std::string_view stateName(std::int64_t state) {
  const auto index = static_cast<std::uint64_t>(state);
  return index < kStateNames.size() ? kStateNames[static_cast<std::size_t>(index)]
                                    : kStateNames.front();
}

// What a tracker's state becomes at a power-on during a scan: unknown, until the tag is heard
// again.
constexpr std::int64_t kStateUnknown = -1;

}  // namespace

KVTrackerManager::Core::Core(const KVPlatform& platform)
    : services_(std::make_shared<const kv::Services>(platform)) {}

KVTrackerManager::Core::~Core() { kv::wipe(password); }

void KVTrackerManager::Core::open(const KVPlatform& platform, KVCentralDelegate& delegate) {
  central = platform.radio->makeCentral(delegate, platform.eventQueue);
  ownCentral_ = central;
}

void KVTrackerManager::Core::close() {
  // Others may hold it still, and its delegate is going.
  if (const auto own = ownCentral_.lock()) own->close();
  central.reset();
}

void KVTrackerManager::Core::setPassword(std::optional<std::string> value) {
  kv::wipe(password);
  password = value;  // copied, so that the argument can be wiped
  kv::wipe(value);
}

void KVTrackerManager::Core::stateChanged(const KVCentral& from) {
  if (from.state() == KVCentralStatePoweredOn && scanning) {
    scanForTrackers();
    for (std::size_t i = 0; i < bindArray->size(); ++i) {
      const auto tracker = (*bindArray)[i];
      tracker->setState(kStateUnknown);
    }
  } else {
    for (std::size_t i = 0; i < bindArray->size(); ++i) {
      const auto tracker = (*bindArray)[i];
      if (tracker->state() == KVTrackerStateConnected) {
        tracker->setState(KVTrackerStateDisconnected);
      }
    }
  }
  stateChangeBlock(from.state());
  log("The bluetooth state:" + std::string(stateName(from.state())));
}

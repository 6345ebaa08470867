// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A virtual tag's advertisement as an object of BlueZ.
#ifndef SIMULATOR_AIR_ADVERTISEMENT_H
#define SIMULATOR_AIR_ADVERTISEMENT_H

#include <functional>
#include <memory>

#include "KVFobSimulator/VirtualTag.h"
#include "platform/linux/bus/connection.h"
#include "platform/linux/bus/object.h"

namespace kvsim {

class Advertisement {
 public:
  static constexpr const char* kPath = "/kvfob/advertisement";

  /// `released` tells that BlueZ has dropped the advertisement.
  Advertisement(std::shared_ptr<kv::BusConnection> bus, const std::shared_ptr<VirtualTag>& tag,
                std::function<void()> released);
  Advertisement(const Advertisement&) = delete;
  Advertisement& operator=(const Advertisement&) = delete;

  /// Has BlueZ advertise what the tag says now. Only while the adapter is on: bluetoothd 5.66 ends
  /// when an advertisement changes while it is off.
  void refresh();

 private:
  const std::shared_ptr<kv::BusConnection> bus_;
  kv::BusSlot slot_;
};

}  // namespace kvsim

#endif  // SIMULATOR_AIR_ADVERTISEMENT_H

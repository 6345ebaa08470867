// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A virtual tag on the air, through a real adapter.
#ifndef KVFOBSIMULATOR_AIRTAG_H
#define KVFOBSIMULATOR_AIRTAG_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "KVFobLink/KVLinuxPlatform.h"
#include "KVFobSimulator/VirtualTag.h"

namespace kvsim {

struct AirTagOptions {
  /// Which adapter: "hci1", or its address "00:11:22:33:44:55"; empty takes the first.
  std::string adapter{};
  /// The address of the bus on which org.bluez is found; empty means the system bus.
  std::string busAddress{};
  /// What the tag is. An empty address stands for the adapter's own.
  TagSpec tag{};
};

enum class AirState {
  Waiting,  ///< Not on the air: no Bluetooth service, no such adapter, or it is off.
  OnAir,    ///< Advertising, or connected.
};

/// Puts a virtual tag on the air with BlueZ: an advertisement and a GATT application. It comes back
/// by itself when the adapter or bluetoothd does. It never switches the adapter on.
///
///     kvsim::AirTag tag(queue, {.adapter = "hci1"});
///     tag.setObserver([](const kvsim::TagEvent& event) { std::cout << event.text << '\n'; });
///     queue->run();
///
/// One central at a time; what another one asks for meanwhile is refused. Everything is for the
/// event thread, and nothing blocks.
class AirTag {
 public:
  /// Tells the state, and why, in a line for the user. May drop the AirTag.
  using StateCallback = std::function<void(AirState state, const std::string& reason)>;

  /// The tag does not own the queue, and does nothing once it is gone.
  AirTag(const std::shared_ptr<KVLinuxEventQueue>& queue, AirTagOptions options);
  /// Takes the tag off the air.
  ~AirTag();
  AirTag(const AirTag&) = delete;
  AirTag& operator=(const AirTag&) = delete;

  AirState state() const;
  /// Why, as the callback has it; empty until something is known.
  const std::string& reason() const;

  /// Calls `callback` at each change of the state or of the reason for waiting, in place of an
  /// earlier one.
  void setStateCallback(StateCallback callback);

  /// What happens at the tag, as `VirtualTag` reports it.
  void setObserver(VirtualTag::Observer observer);

  /// The tag itself; absent until its address is known, which with an empty one is when the adapter
  /// has first been found.
  std::shared_ptr<VirtualTag> tag() const;

  /// As the operations of `VirtualTag`; without a tag they do nothing.
  void pressButton();
  void setBattery(std::uint8_t battery);

 private:
  class Air;
  std::shared_ptr<Air> air_;
};

}  // namespace kvsim

#endif  // KVFOBSIMULATOR_AIRTAG_H

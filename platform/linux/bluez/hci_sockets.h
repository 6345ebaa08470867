// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The kernel's own Bluetooth sockets, for what D-Bus does not offer.
#ifndef PLATFORM_LINUX_BLUEZ_HCI_SOCKETS_H
#define PLATFORM_LINUX_BLUEZ_HCI_SOCKETS_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/linux/owned_fd.h"

namespace kv {

/// The number in an adapter's path: 1 of "/org/bluez/hci1".
std::uint16_t adapterIndex(const std::string& adapterPath);

/// Virtual, so that a test can put itself in the kernel's place. The sockets do not block and close
/// on exec; where there is none, errno tells why.
class HciSockets {
 public:
  /// As the kernel keeps it, least significant byte first.
  using Address = std::array<std::uint8_t, 6>;

  virtual ~HciSockets() = default;

  /// A raw socket on one adapter, which hears nothing but the answers to Read RSSI. It needs
  /// no privilege.
  virtual OwnedFd openRaw(std::uint16_t index);
  /// The management interface, for all adapters. Opening it needs no privilege, most of its
  /// commands need CAP_NET_ADMIN.
  virtual OwnedFd openManagement();
  /// The handle of the low-energy link to `peer`; absent without one.
  virtual std::optional<std::uint16_t> linkHandle(int raw, const Address& peer);
};

/// Read RSSI (Bluetooth Core Specification, Vol 4, Part E, 7.5.4), with the packet types and events
/// of the same document.
inline constexpr std::uint8_t kCommandPacket = 0x01;
inline constexpr std::uint8_t kEventPacket = 0x04;
inline constexpr std::uint8_t kCommandComplete = 0x0e;
inline constexpr std::uint8_t kCommandStatus = 0x0f;
inline constexpr std::uint16_t kReadRssi = 0x1405;

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_HCI_SOCKETS_H

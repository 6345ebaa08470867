// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bluez/hci_sockets.h"

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <charconv>
#include <string_view>
#include <utility>

namespace kv {
namespace {

// The kernel's Bluetooth socket interface (include/net/bluetooth/hci_sock.h of Linux 6.1).
constexpr int kProtocolHci = 1;
constexpr int kOptionFilter = 2;
constexpr std::uint16_t kChannelRaw = 0;
constexpr std::uint16_t kChannelControl = 3;
constexpr std::uint16_t kNoDevice = 0xffff;
constexpr std::uint8_t kLeLink = 0x80;

struct SocketAddress {
  std::uint16_t family;
  std::uint16_t device;
  std::uint16_t channel;
};

struct Filter {
  std::uint32_t types;
  std::array<std::uint32_t, 2> events;
  std::uint16_t opcode;
  std::uint16_t padding;
};

struct ConnectionInfo {
  HciSockets::Address peer;
  std::uint8_t type;
  std::uint8_t padding;
  std::uint16_t handle;
  std::array<std::uint8_t, 14> rest;
};
static_assert(sizeof(ConnectionInfo) == 24);
constexpr unsigned long kGetConnectionInfo = _IOR('H', 213, int);

OwnedFd openChannel(std::uint16_t index, std::uint16_t channel) {
  OwnedFd fd(socket(AF_BLUETOOTH, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, kProtocolHci));
  const SocketAddress address{AF_BLUETOOTH, index, channel};
  const bool bound =
      fd && bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  return bound ? std::move(fd) : OwnedFd();
}

}  // namespace

std::uint16_t adapterIndex(const std::string& adapterPath) {
  constexpr std::string_view kMark = "/hci";
  const auto mark = adapterPath.rfind(kMark);
  std::uint16_t index = 0;
  if (mark != std::string::npos) {
    std::from_chars(adapterPath.data() + mark + kMark.size(),
                    adapterPath.data() + adapterPath.size(), index);
  }
  return index;
}

OwnedFd HciSockets::openRaw(std::uint16_t index) {
  OwnedFd fd = openChannel(index, kChannelRaw);
  const Filter filter{
      1U << kEventPacket, {1U << kCommandComplete | 1U << kCommandStatus, 0}, kReadRssi, 0};
  const bool filtered = fd && setsockopt(fd.get(), 0, kOptionFilter, &filter, sizeof filter) == 0;
  return filtered ? std::move(fd) : OwnedFd();
}

OwnedFd HciSockets::openManagement() { return openChannel(kNoDevice, kChannelControl); }

std::optional<std::uint16_t> HciSockets::linkHandle(int raw, const Address& peer) {
  ConnectionInfo info{};
  info.peer = peer;
  info.type = kLeLink;
  if (ioctl(raw, kGetConnectionInfo, &info) != 0) return std::nullopt;
  return info.handle;
}

}  // namespace kv

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bluez/live_rssi.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>
#include <utility>

namespace kv {
namespace {

constexpr std::int8_t kNoRssi = 127;

// Get Connection Information of the kernel's management interface (doc/mgmt-api.txt of BlueZ).
constexpr std::uint16_t kManageConnectionInfo = 0x0031;
constexpr std::uint16_t kManageComplete = 0x0001;
constexpr std::uint16_t kManageStatus = 0x0002;
constexpr std::size_t kManageStatusAt = 8;
constexpr std::uint8_t kManagePermissionDenied = 0x14;

std::uint16_t wordAt(KVBytes bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

constexpr std::uint8_t low(std::uint16_t word) { return static_cast<std::uint8_t>(word & 0xff); }
constexpr std::uint8_t high(std::uint16_t word) { return static_cast<std::uint8_t>(word >> 8); }

// Of "AA:BB:CC:DD:EE:FF".
HciSockets::Address addressBytes(std::string_view text) {
  HciSockets::Address bytes{};
  if (text.size() != 17) return bytes;
  const char* digits = text.data();
  for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte, digits += 3) {
    std::from_chars(digits, text.data() + text.size(), *byte, 16);
  }
  return bytes;
}

std::optional<std::int64_t> known(std::uint8_t byte) {
  const auto rssi = static_cast<std::int8_t>(byte);
  return rssi == kNoRssi ? std::nullopt : std::optional<std::int64_t>(rssi);
}

}  // namespace

LiveRssi::LiveRssi(Context& context, std::shared_ptr<HciSockets> sockets)
    : context_(context), sockets_(std::move(sockets)), limit_(context.queue) {}

LiveRssi::~LiveRssi() { reset(); }

void LiveRssi::reset() {
  queries_.clear();
  busy_ = false;
  watch_.reset();
  socket_ = OwnedFd();
  channel_ = Channel::None;
  unavailable_ = false;
}

void LiveRssi::read(const std::string& adapterPath, const std::string& address, bool randomAddress,
                    Answer answered) {
  const std::uint16_t index = adapterIndex(adapterPath);
  if (index != index_) {
    reset();
    index_ = index;
  }
  if (!unavailable_ && (channel_ != Channel::None || open(index))) {
    queries_.push_back({address, randomAddress, std::move(answered)});
    next();
  }
}

bool LiveRssi::open(std::uint16_t index) {
  socket_ = sockets_->openRaw(index);
  channel_ = Channel::Raw;
  std::string why;
  if (!socket_) {
    const int error = errno;
    why = std::strerror(error);
    // An adapter that the kernel does not show us is not in the management interface either.
    if (error != ENODEV) socket_ = sockets_->openManagement();
    channel_ = Channel::Management;
  }
  if (!socket_) {
    giveUp("a Bluetooth socket cannot be opened: " + why);
    return false;
  }
  watch_ = context_.queue.watch(socket_.get(), POLLIN, [this](short) { receive(); });
  return true;
}

void LiveRssi::giveUp(const std::string& why) {
  reset();
  unavailable_ = true;
  context_.log("rssi unavailable, because " + why);
}

void LiveRssi::next() {
  if (busy_ || queries_.empty()) return;
  busy_ = true;
  limit_.set(context_.timing.rssi, [this] { answer(std::nullopt); });
  const bool sent =
      channel_ == Channel::Raw ? sendRaw(queries_.front()) : sendManagement(queries_.front());
  if (!sent) limit_.set({}, [this] { answer(std::nullopt); });
}

bool LiveRssi::sendRaw(Query& query) {
  // The handle is asked for each time: it changes with each link.
  const auto handle = sockets_->linkHandle(socket_.get(), addressBytes(query.address));
  if (!handle) return false;
  query.handle = *handle;
  const std::array<std::uint8_t, 6> command{kCommandPacket, low(kReadRssi), high(kReadRssi), 2,
                                            low(*handle),   high(*handle)};
  return write(socket_.get(), command.data(), command.size()) ==
         static_cast<ssize_t>(command.size());
}

bool LiveRssi::sendManagement(const Query& query) {
  constexpr std::uint8_t kLePublic = 1;
  constexpr std::uint8_t kLeRandom = 2;
  std::array<std::uint8_t, 13> command{
      low(kManageConnectionInfo), high(kManageConnectionInfo), low(index_), high(index_), 7, 0};
  const auto peer = addressBytes(query.address);
  std::copy(peer.begin(), peer.end(), command.begin() + 6);
  command[12] = query.randomAddress ? kLeRandom : kLePublic;
  return write(socket_.get(), command.data(), command.size()) ==
         static_cast<ssize_t>(command.size());
}

// Takes one packet: the watch calls again for what is left.
void LiveRssi::receive() {
  std::array<std::uint8_t, 512> buffer{};
  const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (size <= 0) return reset();  // the adapter has gone; a later reading opens the socket anew
  bool ours = false;
  const auto rssi = parse(KVBytes(buffer.data(), static_cast<std::size_t>(size)), ours);
  if (!ours) return;
  if (channel_ == Channel::Management && buffer[kManageStatusAt] == kManagePermissionDenied) {
    giveUp("this process may neither use a raw Bluetooth socket nor manage the adapter");
  } else {
    answer(rssi);
  }
}

std::optional<std::int64_t> LiveRssi::parse(KVBytes packet, bool& ours) const {
  if (queries_.empty()) return std::nullopt;
  if (channel_ == Channel::Raw) {
    // Command Status: packet type, event, length, status, number of commands, opcode (2).
    // Command Complete: packet type, event, length, number of commands, opcode (2), status, handle
    // (2), RSSI.
    if (packet.size() >= 7 && packet[0] == kEventPacket && packet[1] == kCommandStatus) {
      ours = wordAt(packet, 5) == kReadRssi && packet[3] != 0;
    } else if (packet.size() >= 10 && packet[0] == kEventPacket && packet[1] == kCommandComplete) {
      ours = wordAt(packet, 4) == kReadRssi && wordAt(packet, 7) == queries_.front().handle;
      return ours && packet[6] == 0 ? known(packet[9]) : std::nullopt;
    }
    return std::nullopt;
  }
  // Event (2), adapter (2), length (2), command (2), status, and for this command: address (6), its
  // type, RSSI, transmit powers (2).
  constexpr std::size_t kHeader = 9;
  constexpr std::size_t kRssiAt = 16;
  const std::uint16_t event = packet.size() >= kHeader ? wordAt(packet, 0) : 0;
  ours = (event == kManageComplete || event == kManageStatus) &&
         wordAt(packet, 6) == kManageConnectionInfo;
  if (!ours || packet[kManageStatusAt] != 0 || packet.size() <= kRssiAt) return std::nullopt;
  return known(packet[kRssiAt]);
}

void LiveRssi::answer(std::optional<std::int64_t> rssi) {
  busy_ = false;
  if (!queries_.empty()) {
    const auto answered = std::move(queries_.front().answered);
    queries_.pop_front();
    answered(rssi);
  }
  next();
}

}  // namespace kv

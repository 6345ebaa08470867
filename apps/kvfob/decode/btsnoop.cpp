// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/decode/btsnoop.h"

#include <string_view>
#include <utility>

#include "apps/kvfob/decode/byte_reader.h"

namespace kvfob {
namespace {

constexpr std::string_view kMagic("btsnoop\0", 8);
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kFileHeader = 16;
constexpr std::size_t kPacketHeader = 24;
// An indicator, handle and length, and as much data as a length of two bytes can tell.
constexpr std::size_t kPacketMost = 1 + 4 + 0xFFFF;

// Datalink types.
constexpr std::uint32_t kBareHci = 1001;  // direction and kind in the flags
constexpr std::uint32_t kUart = 1002;     // kind in the packet's first byte
constexpr std::uint32_t kMonitor = 2001;  // adapter and kind in the flags

// From midnight of 1 January of the year 0 to the Unix epoch, in microseconds.
constexpr std::uint64_t kUnixEpoch = 0x00DCDDB30F2F8000;

constexpr std::uint32_t kReceived = 1;  // flag of a bare or UART packet

std::chrono::system_clock::time_point timeOf(std::uint64_t stamp) {
  constexpr std::uint64_t kMost = std::uint64_t{1} << 52U;  // a nonsensical time must not overflow
  const std::uint64_t sinceEpoch = stamp >= kUnixEpoch ? stamp - kUnixEpoch : 0;
  return std::chrono::system_clock::time_point(
      std::chrono::microseconds(static_cast<std::int64_t>(sinceEpoch % kMost)));
}

constexpr std::uint32_t kMonitorEvent = 3;
constexpr std::uint32_t kMonitorAclSent = 4;
constexpr std::uint32_t kMonitorAclReceived = 5;

HciPacket::Kind monitorKind(std::uint32_t opcode) {
  if (opcode == kMonitorEvent) return HciPacket::Kind::Event;
  const bool acl = opcode == kMonitorAclSent || opcode == kMonitorAclReceived;
  return acl ? HciPacket::Kind::Acl : HciPacket::Kind::Other;
}

HciPacket::Kind bareKind(std::uint32_t flags) {
  constexpr std::uint32_t kCommandOrEvent = 2;
  if ((flags & kCommandOrEvent) == 0) return HciPacket::Kind::Acl;
  return (flags & kReceived) != 0 ? HciPacket::Kind::Event : HciPacket::Kind::Other;
}

HciPacket::Kind uartKind(std::uint8_t indicator) {
  if (indicator == 4) return HciPacket::Kind::Event;
  return indicator == 2 ? HciPacket::Kind::Acl : HciPacket::Kind::Other;
}

}  // namespace

bool BtsnoopReader::recognises(InputBuffer& input) { return input.startsWith(kMagic); }

BtsnoopReader::BtsnoopReader(InputBuffer& input) : input_(input) {
  ByteReader header(input_.peek(kFileHeader));
  header.skip(kMagic.size());
  const auto version = static_cast<std::uint32_t>(header.bigEndian(4));
  link_ = static_cast<std::uint32_t>(header.bigEndian(4));
  if (!header.ok()) {
    error_ = "the capture ends inside its header";
  } else if (version != kVersion) {
    error_ = "the capture has version " + std::to_string(version) + ", not 1";
  } else if (link_ != kBareHci && link_ != kUart && link_ != kMonitor) {
    error_ = "the capture is of an unknown kind of link, " + std::to_string(link_);
  } else {
    input_.skip(kFileHeader);
  }
}

std::optional<HciPacket> BtsnoopReader::next() {
  if (!error_.empty()) return std::nullopt;
  input_.skip(std::exchange(shown_, 0));
  ByteReader header(input_.peek(kPacketHeader));
  if (header.atEnd()) return std::nullopt;
  header.skip(4);  // the length before truncation
  const auto size = static_cast<std::size_t>(header.bigEndian(4));
  const auto flags = static_cast<std::uint32_t>(header.bigEndian(4));
  header.skip(4);  // how many were dropped
  const auto time = header.bigEndian(8);
  if (size > kPacketMost) {
    error_ = where() + " claims to have " + std::to_string(size) + " bytes: the capture is damaged";
    return std::nullopt;
  }
  const auto whole = input_.peek(kPacketHeader + size);
  if (!header.ok() || whole.size() < kPacketHeader + size) {
    error_ = "the capture ends inside " + where();
    return std::nullopt;
  }
  KVBytes bytes = whole.subspan(kPacketHeader);
  shown_ = whole.size();
  ++packets_;

  HciPacket packet;
  packet.time = timeOf(time);
  if (link_ == kMonitor) {
    packet.adapter = flags >> 16U;
    packet.kind = monitorKind(flags & 0xFFFFU);
    packet.received = (flags & 0xFFFFU) == kMonitorAclReceived;
  } else {
    packet.received = (flags & kReceived) != 0;
    if (link_ == kBareHci) {
      packet.kind = bareKind(flags);
    } else if (!bytes.empty()) {
      packet.kind = uartKind(bytes.front());
      bytes = bytes.subspan(1);
    }
  }
  packet.bytes = bytes;
  return packet;
}

std::string BtsnoopReader::where() const {
  return "packet " + std::to_string(packets_ + 1) + ", which begins at byte " +
         std::to_string(input_.position()) + ",";
}

}  // namespace kvfob

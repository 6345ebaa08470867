// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/decode/hci.h"

#include <algorithm>

#include "apps/kvfob/base/text.h"
#include "apps/kvfob/decode/byte_reader.h"

namespace kvfob {
namespace {

constexpr std::uint8_t kDisconnectionComplete = 0x05;
constexpr std::uint8_t kLowEnergyMeta = 0x3E;
constexpr std::uint8_t kConnectionComplete = 0x01;
constexpr std::uint8_t kAdvertisingReport = 0x02;
constexpr std::uint8_t kEnhancedConnectionComplete = 0x0A;
constexpr std::uint8_t kExtendedAdvertisingReport = 0x0D;

constexpr std::size_t kAddressSize = 6;
constexpr std::uint8_t kServiceData16 = 0x16;  // type of an advertising data structure
constexpr std::uint16_t kAttributeChannel = 0x0004;
constexpr std::uint16_t kFirstDynamicChannel = 0x0040;
constexpr std::size_t kL2capHeader = 4;
// Far more than a controller has; a capture may claim any number of them.
constexpr std::size_t kFragmentsMost = 512;

// "00:11:22:33:44:55"; on the air the least significant byte comes first.
std::string addressText(KVBytes address) {
  std::string text;
  for (std::size_t i = address.size(); i-- > 0;) {
    text += hex(address.subspan(i, 1));
    if (i > 0) text += ':';
  }
  return text;
}

}  // namespace

void HciDecoder::decode(const HciPacket& packet) {
  if (packet.kind == HciPacket::Kind::Event) event(packet);
  if (packet.kind == HciPacket::Kind::Acl) data(packet);
}

void HciDecoder::event(const HciPacket& packet) {
  ByteReader reader(packet.bytes);
  const std::uint8_t code = reader.u8();
  const KVBytes parameters = reader.take(reader.u8());
  if (!reader.ok()) return;
  if (code == kLowEnergyMeta) lowEnergyEvent(packet, parameters);
  if (code == kDisconnectionComplete) {
    ByteReader fields(parameters);
    const std::uint8_t status = fields.u8();
    const LinkId link{packet.adapter, static_cast<std::uint16_t>(fields.u16() & 0x0FFFU)};
    const std::uint8_t reason = fields.u8();
    if (!fields.ok() || status != 0) return;
    forget(link);
    listener_.linkDown(packet, link, reason);
  }
}

void HciDecoder::lowEnergyEvent(const HciPacket& packet, KVBytes parameters) {
  if (parameters.empty()) return;
  const KVBytes rest = parameters.subspan(1);
  switch (parameters.front()) {
    case kConnectionComplete:
    case kEnhancedConnectionComplete:
      connectionComplete(packet, rest);
      break;
    case kAdvertisingReport:
      advertisingReports(packet, rest);
      break;
    case kExtendedAdvertisingReport:
      extendedAdvertisingReports(packet, rest);
      break;
    default:
      break;
  }
}

void HciDecoder::connectionComplete(const HciPacket& packet, KVBytes parameters) {
  ByteReader fields(parameters);
  const std::uint8_t status = fields.u8();
  const LinkId link{packet.adapter, static_cast<std::uint16_t>(fields.u16() & 0x0FFFU)};
  fields.skip(2);  // role, address type
  const KVBytes peer = fields.take(kAddressSize);
  if (!fields.ok() || status != 0) return;
  forget(link);
  listener_.linkUp(packet, link, addressText(peer));
}

void HciDecoder::advertisingReports(const HciPacket& packet, KVBytes parameters) {
  ByteReader fields(parameters);
  for (unsigned left = fields.u8(); left > 0 && fields.ok(); --left) {
    fields.skip(2 + kAddressSize);  // event type, address type, address
    const KVBytes report = fields.take(fields.u8());
    const auto rssi = static_cast<std::int8_t>(fields.u8());
    if (fields.ok()) advertisingData(packet, report, rssi);
  }
}

void HciDecoder::extendedAdvertisingReports(const HciPacket& packet, KVBytes parameters) {
  ByteReader fields(parameters);
  for (unsigned left = fields.u8(); left > 0 && fields.ok(); --left) {
    fields.skip(3 + kAddressSize + 4);  // event type, address type, address, PHYs, set, power
    const auto rssi = static_cast<std::int8_t>(fields.u8());
    fields.skip(2 + 1 + kAddressSize);  // interval, direct address
    const KVBytes report = fields.take(fields.u8());
    if (fields.ok()) advertisingData(packet, report, rssi);
  }
}

void HciDecoder::advertisingData(const HciPacket& packet, KVBytes data, int rssi) {
  ByteReader structures(data);
  while (!structures.atEnd()) {
    ByteReader structure(structures.take(structures.u8()));
    if (!structures.ok()) return;
    if (structure.atEnd() || structure.u8() != kServiceData16) continue;
    const std::uint16_t uuid = structure.u16();
    if (structure.ok()) listener_.serviceDataReceived(packet, uuid, structure.rest(), rssi);
  }
}

void HciDecoder::data(const HciPacket& packet) {
  ByteReader header(packet.bytes);
  const std::uint16_t handleAndFlags = header.u16();
  const KVBytes fragment = header.take(header.u16());
  if (!header.ok()) return;
  const bool continues = ((handleAndFlags >> 12U) & 0x03U) == 0x01U;
  const LinkId link{packet.adapter, static_cast<std::uint16_t>(handleAndFlags & 0x0FFFU)};
  const FragmentKey key{link, packet.received};

  if (fragments_.size() >= kFragmentsMost && !fragments_.contains(key)) {
    fragments_.erase(fragments_.begin());
  }
  KVData& message = fragments_[key];
  if (!continues) message.clear();
  message.insert(message.end(), fragment.begin(), fragment.end());
  ByteReader whole(message);
  const std::uint16_t length = whole.u16();
  const std::uint16_t channel = whole.u16();
  if (message.size() < kL2capHeader + length) return;
  KVBytes payload = whole.take(length);
  if (channel >= kFirstDynamicChannel) {
    // On an enhanced ATT bearer, if it is one, an SDU of a single K-frame follows its length.
    ByteReader enhanced(payload);
    payload = enhanced.u16() == enhanced.rest().size() ? enhanced.rest() : KVBytes();
  } else if (channel != kAttributeChannel) {
    payload = {};
  }
  if (!payload.empty()) listener_.attribute(packet, link, payload);
  fragments_.erase(key);
}

void HciDecoder::forget(LinkId link) {
  fragments_.erase({link, false});
  fragments_.erase({link, true});
}

}  // namespace kvfob

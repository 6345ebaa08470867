// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What a capture holds of advertisements, links and attribute traffic.
///
/// Formats: Bluetooth Core Specification, Vol 4, Part E (HCI); Vol 3, Part A (L2CAP) and
/// Part F (ATT).
#ifndef APPS_KVFOB_DECODE_HCI_H
#define APPS_KVFOB_DECODE_HCI_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "KVFobLink/KVTypes.h"
#include "apps/kvfob/decode/btsnoop.h"

namespace kvfob {

/// One link of one adapter.
struct LinkId {
  unsigned adapter = 0;
  std::uint16_t handle = 0;

  friend bool operator<(const LinkId& a, const LinkId& b) {
    return std::pair(a.adapter, a.handle) < std::pair(b.adapter, b.handle);
  }
};

/// Receives what `HciDecoder` finds. `packet` is the one that completed it.
class HciListener {
 public:
  virtual ~HciListener() = default;

  /// One service-data entry with a 16-bit UUID in an advertisement. `rssi` is in dBm, or 127 when
  /// it is not known.
  virtual void serviceDataReceived(const HciPacket& packet, std::uint16_t uuid, KVBytes data,
                                   int rssi) = 0;
  virtual void linkUp(const HciPacket& packet, LinkId link, const std::string& peer) = 0;
  virtual void linkDown(const HciPacket& packet, LinkId link, std::uint8_t reason) = 0;
  /// One whole attribute protocol PDU.
  virtual void attribute(const HciPacket& packet, LinkId link, KVBytes message) = 0;
};

/// Takes packets apart and puts fragments together. What is malformed is passed over.
class HciDecoder {
 public:
  explicit HciDecoder(HciListener& listener) : listener_(listener) {}

  void decode(const HciPacket& packet);

 private:
  void event(const HciPacket& packet);
  void lowEnergyEvent(const HciPacket& packet, KVBytes parameters);
  void connectionComplete(const HciPacket& packet, KVBytes parameters);
  void advertisingReports(const HciPacket& packet, KVBytes parameters);
  void extendedAdvertisingReports(const HciPacket& packet, KVBytes parameters);
  void advertisingData(const HciPacket& packet, KVBytes data, int rssi);
  void data(const HciPacket& packet);
  void forget(LinkId link);

  /// A message of one direction of a link that has not arrived whole.
  using FragmentKey = std::pair<LinkId, bool>;

  HciListener& listener_;
  std::map<FragmentKey, KVData> fragments_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_DECODE_HCI_H

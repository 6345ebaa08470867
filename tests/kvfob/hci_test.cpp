// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// What packets between host and controller hold.
#include "apps/kvfob/decode/hci.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "KVFobLink/KVCommonTool.h"
#include "apps/kvfob/base/text.h"

namespace kvfob {
namespace {

using ::testing::ElementsAreArray;

class HciTest : public ::testing::Test, public HciListener {
 protected:
  void serviceDataReceived(const HciPacket&, std::uint16_t uuid, KVBytes data, int rssi) override {
    heard.push_back("data " + std::to_string(uuid) + " " + hex(data) + " " + std::to_string(rssi));
  }
  void linkUp(const HciPacket&, LinkId link, const std::string& peer) override {
    heard.push_back("up " + std::to_string(link.handle) + " " + peer);
  }
  void linkDown(const HciPacket&, LinkId link, std::uint8_t reason) override {
    heard.push_back("down " + std::to_string(link.handle) + " " + std::to_string(reason));
  }
  void attribute(const HciPacket&, LinkId link, KVBytes message) override {
    heard.push_back("att " + std::to_string(link.handle) + " " + hex(message));
  }

  void take(HciPacket::Kind kind, const std::string& text, bool received = true) {
    const auto bytes = KVCommonTool::dataFromHexString(text);
    HciPacket packet;
    packet.kind = kind;
    packet.received = received;
    packet.bytes = bytes;
    decoder.decode(packet);
  }

  std::vector<std::string> heard;
  HciDecoder decoder{*this};
};

// An event with its code and the length of its parameters.
std::string event(const std::string& code, const std::string& parameters) {
  const auto size = static_cast<std::uint8_t>(KVCommonTool::dataFromHexString(parameters).size());
  return code + hex({&size, 1}) + parameters;
}

TEST_F(HciTest, Events) {
  const std::string from = "0000 665544332211 ";  // kinds of advertisement and address, address
  const std::string data = "05 0416e1ffa1 ";      // length, then service data of FFE1
  // Kinds of advertisement (2) and address, address, 2 PHYs, set, power.
  const std::string extended = "130000 665544332211 01007f7f ";
  const std::string direct = "0000 00 665544332211 ";  // interval, direct address with its kind
  const std::pair<std::string, std::vector<std::string>> kCases[] = {
      // Of a lost link: status, handle, reason.
      {event("05", "00 4020 13"), {"down 64 19"}},
      {event("05", "01 4000 13"), {}},
      {event("05", "00 4000"), {}},
      {"05 05 00 4000 13", {}},  // shorter than it says
      // Of a new one: subevent, status, handle, role, kind of address, address.
      {event("3e", "01 00 4120 0000 665544332211 ff"), {"up 65 11:22:33:44:55:66"}},
      {event("3e", "0a 00 4100 0000 665544332211"), {"up 65 11:22:33:44:55:66"}},
      {event("3e", "01 02 4100 0000 665544332211"), {}},
      {event("3e", "01 00 4100 0000 6655443322"), {}},
      // Advertisements: subevent, how many, and of each what is above, and the signal.
      {event("3e", "02 01" + from + data + "c4"), {"data 65505 a1 -60"}},
      {event("3e", "02 01" + from + "08 020106 0416e1ffb2 7f"), {"data 65505 b2 127"}},
      {event("3e", "02 01" + from + "04 0316e1ff c4"), {"data 65505  -60"}},
      {event("3e", "02 01" + from + "03 0216e1 c4"), {}},
      {event("3e", "02 01" + from + "07 00 0516e1ffa1 c4"), {}},
      {event("3e", "02 02" + from + data + "c4" + from + data + "c5"),
       {"data 65505 a1 -60", "data 65505 a1 -59"}},
      {event("3e", "02 01" + from + data + "c4" + from + data + "c5"), {"data 65505 a1 -60"}},
      {event("3e", "02 01" + from + data), {}},
      {event("3e", "03 01" + from + data + "c4"), {}},
      {event("3e", "0d 01" + extended + "c4" + direct + data), {"data 65505 a1 -60"}},
      {event("3e", "0d 02" + extended + "c4" + direct + data + extended + "c5" + direct + data),
       {"data 65505 a1 -60", "data 65505 a1 -59"}},
      {event("3e", "0d 01" + extended + "c4" + direct + "05 0416e1ff"), {}},
      {event("3e", ""), {}},
      {"3e", {}},
  };
  for (const auto& [text, expected] : kCases) {
    heard.clear();
    take(HciPacket::Kind::Other, text);
    EXPECT_TRUE(heard.empty());
    take(HciPacket::Kind::Event, text);
    EXPECT_THAT(heard, ElementsAreArray(expected)) << text;
  }
}

TEST_F(HciTest, FragmentsBecomeMessages) {
  const auto acl = [this](const std::string& text, bool received = true) {
    take(HciPacket::Kind::Acl, text, received);
  };
  // Handle with flags, length; then in the first fragment length and channel of the message.
  acl("4020 0700 0300 0400 1b0102");
  acl("4020 0600 0400 0400 1b01");
  acl("4020 0600 0300 0400 aabb", /*received=*/false);
  acl("4010 0200 0203");
  acl("4010 0100 cc", /*received=*/false);
  acl("4020 0600 0300 0500 1b01");  // another channel
  acl("4010 0100 02");
  acl("4020 0900 0500 4000 0300 520304");  // enhanced, with its own length
  acl("4020 0900 0500 4000 0400 520304");
  acl("4020 0800 0300 0400 1b0102");  // not as long as it says
  EXPECT_THAT(heard, ElementsAreArray(
                         {"att 64 1b0102", "att 64 1b010203", "att 64 aabbcc", "att 64 520304"}));
  heard.clear();
  // A link that begins anew knows nothing of the one before.
  for (const auto& end : {event("05", "00 4100 13"), event("3e", "01 00 4100 0000 665544332211")}) {
    acl("4120 0600 0300 0400 1b01");
    take(HciPacket::Kind::Event, end);
    acl("4110 0100 02");
  }
  EXPECT_THAT(heard, ElementsAreArray({"down 65 19", "up 65 11:22:33:44:55:66"}));
}

TEST_F(HciTest, KeepsNoMoreThanAControllerHas) {
  for (unsigned handle = 1; handle <= 513; ++handle) {
    const std::array<std::uint8_t, 2> bytes{static_cast<std::uint8_t>(handle & 0xFFU),
                                            static_cast<std::uint8_t>(0x20U | (handle >> 8U))};
    take(HciPacket::Kind::Acl, hex(bytes) + "0600 0300 0400 1b01");
  }
  take(HciPacket::Kind::Acl, "0210 0100 02");
  take(HciPacket::Kind::Acl, "0110 0100 02");  // the first one had to go
  EXPECT_THAT(heard, ElementsAreArray({"att 2 1b0102"}));
}

}  // namespace
}  // namespace kvfob

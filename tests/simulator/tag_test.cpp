// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The tag against blocks that were made without any of this project's code: AES-128 and CRC by
// Python's `cryptography` and `binascii.crc_hqx(data, 0xFFFF)`. The tag's random source counts up
// from 00; the client's half of the key is c0 to c7, the fill of its frames ee. So the opening
// value is 00 to 0f in the clear, the session key 060708090a0b0c0d c0c1c2c3c4c5c6c7, and the fill
// of the tag's n-th answer starts at 10 * n (hexadecimal).
#include <gtest/gtest.h>

#include <numeric>

#include "KVFobSimulator/VirtualTag.h"

namespace kvsim {
namespace {

constexpr GattHandle kCommand = 0x0010;

KVData bytes(std::string_view hex) {
  KVData data;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    data.push_back(
        static_cast<std::uint8_t>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  }
  return data;
}

std::string hex(KVBytes data) {
  std::string text;
  for (const std::uint8_t byte : data) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

class VirtualTagTest : public ::testing::Test, public TagLink {
 protected:
  VirtualTagTest() { join(tag); }
  ~VirtualTagTest() override { tag.disconnect(); }

  void notify(GattHandle, KVData value, std::chrono::nanoseconds) override {
    sent.push_back(hex(value));
  }
  void drop(std::chrono::nanoseconds) override { ++drops; }

  void join(VirtualTag& to) {
    to.connect(*this);
    to.subscribe(kCommand, /*enabled=*/true);
  }

  // Writes a block; the answers that it gets, or the error of the write.
  std::string write(std::string_view block) {
    sent.clear();
    const auto answer = tag.write(kCommand, bytes(block));
    if (!answer) return "silence";
    if (answer->attError != 0) return "error " + std::to_string(answer->attError);
    return std::accumulate(sent.begin(), sent.end(), std::string());
  }

  void reachSession() {
    ASSERT_EQ(hex(tag.read(kCommand)->value), "afbb9b0cf5480d678a32e1aa2eb8b75c");
    // The token: address, client's half, CRC.
    ASSERT_EQ(write("130704d621d110865557d21532511f91"), "");
    // 00 07 13 "secret", and its answer: 01 02 13 00.
    ASSERT_EQ(write("b65e9a91d30f2004e025106e9b7b13fb"), "3f05c765d8dc040208d8031d1a1dbc36");
  }

  std::uint8_t counter = 0;
  std::vector<std::string> sent;
  int drops = 0;
  VirtualTag tag{{.address = "A1B2C3D4E5F6"}, {}, [this](std::span<std::uint8_t> out) {
                   for (std::uint8_t& byte : out) byte = counter++;
                 }};
};

// a1, product, battery, address from its last byte on, transmit power, model.
TEST_F(VirtualTagTest, Advertisement) {
  EXPECT_EQ(hex(tag.advertisement()), "a10b64f6e5d4c3b2a1f403");
  tag.setBattery(7);
  EXPECT_EQ(hex(tag.advertisement()), "a10b07f6e5d4c3b2a1f403");
  const VirtualTag plain({.address = "nonsense", .model = std::nullopt, .product = 0x0C});
  EXPECT_EQ(hex(plain.advertisement()), "a10c64000000000000f4");
}

TEST_F(VirtualTagTest, AnswersCommandsBlockByBlock) {
  reachSession();
  EXPECT_TRUE(tag.state().bound);
  EXPECT_EQ(tag.spec().password, "secret");
  struct Exchange {
    const char* request;  // 00, length, code, payload, fill ee
    const char* answer;   // 01, 02, code, status, fill
  };
  const Exchange kExchanges[] = {
      // 05 bell: 00 on, 01 off, and 02, which is refused.
      {"80eca0b6431b13ee4a46acc3d96cbe4f", "855c5473c3510d1c3237fc63fb915fc5"},
      {"1bbd5d65581e29e0b809df4c020f5303", "7ea46d07d5746c224fe6d77f608c3faf"},
      {"867b2eefb2c0b9facc055d3d23cdb59d", "bb48e838e482e97ab91afa7656cfe18d"},
      // 1e loss alert: 00 on.
      {"582445d29f6f992ac4441493e36c91c1", "22f203ca514fe7206e9e2abea449396c"},
      // 20 loss delay: 58 1b is 7000; 59 1b is 7001, which is refused.
      {"1f709005c26ccc076e53797ef7c00565", "ee086501285ac9e4341b60a20c7f466f"},
      {"1e3fb009a6aeb969b1186d31e61d2386", "066e85a61205c006daefdb6679ed72e7"},
      // 63 is no command: refused.
      {"4e27fa842223f81831c9667d2cc6ffde", "8913f3b628cd0c8b87ca8b9af8a7cc8b"},
      // 14 remove the password: 00.
      {"11d1fb9c546ab4970e12c8e33600ef22", "459e063531ae34c374c0571ee07101bc"},
  };
  for (const Exchange& each : kExchanges) EXPECT_EQ(write(each.request), each.answer);
  EXPECT_FALSE(tag.state().bellRinging);
  EXPECT_TRUE(tag.state().alertOn);
  EXPECT_EQ(tag.state().lossDelay, 7000);
  EXPECT_FALSE(tag.state().passwordSet);
  sent.clear();
  tag.pressButton();  // 01, 02, 0d, 01, fill
  EXPECT_EQ(sent, std::vector<std::string>{"29e696812902799aecd30c9c1769e94f"});
  EXPECT_EQ(tag.state().commands.at(kBellCommand), 3U);
}

TEST_F(VirtualTagTest, RejectsABadToken) {
  for (const std::string_view token :
       {"8d1ee37a7c638aae0bb2babff358b34c",  // checksum off by one
        "d56704854486c03e23c31a64368a762f",  // another tag's address, checksum right
        "130704d621d110865557d21532511f", "130704d621d110865557d21532511f9100", ""}) {
    tag.read(kCommand);
    EXPECT_EQ(write(token), "error 128") << token;
  }
  EXPECT_EQ(tag.state().rejected, 5U);
  tag.connect(*this);
  EXPECT_EQ(write("130704d621d110865557d21532511f91"), "error 128") << "before the opening value";
}

TEST_F(VirtualTagTest, RefusesAnotherPassword) {
  tag.read(kCommand);
  write("130704d621d110865557d21532511f91");
  EXPECT_EQ(write("80eca0b6431b13ee4a46acc3d96cbe4f").size(), 32U)
      << "a command before the password";
  EXPECT_FALSE(tag.state().bellRinging);
  write("b65e9a91d30f2004e025106e9b7b13fb");
  ASSERT_TRUE(tag.state().bound);
  // The whole handshake again on the same link, then another password.
  EXPECT_EQ(write("130704d621d110865557d21532511f91"), "");
  EXPECT_FALSE(tag.state().bound);
  EXPECT_EQ(write("ccfcc40b027e54d82fe5743d7a368379").size(), 32U);
  EXPECT_FALSE(tag.state().bound);
  EXPECT_EQ(tag.spec().password, "secret");
}

TEST_F(VirtualTagTest, NoiseChangesNothing) {
  reachSession();
  for (const std::string_view noise :
       {"00", "ffffffffffffffffffffffffffffffff", "b65e9a91d30f2004e025106e9b7b13fb00", ""}) {
    EXPECT_EQ(write(noise), "") << noise;
  }
  EXPECT_EQ(tag.state().rejected, 4U);
  EXPECT_EQ(write("80eca0b6431b13ee4a46acc3d96cbe4f").size(), 32U);
  EXPECT_TRUE(tag.state().bellRinging);
  // The distance byte: ec is -20. Attributes: 0040 distance, 0050 model number.
  EXPECT_EQ(tag.write(0x0040, bytes("ec"))->attError, 0);
  EXPECT_EQ(tag.state().distance, -20);
  EXPECT_NE(tag.write(0x0040, bytes("ec00"))->attError, 0);
  EXPECT_NE(tag.write(0x0050, bytes("00"))->attError, 0);
  EXPECT_NE(tag.read(0x0040)->attError, 0);
}

TEST_F(VirtualTagTest, FaultyAnswersAsTheyLookOnTheAir) {
  reachSession();
  const std::string ring = "80eca0b6431b13ee4a46acc3d96cbe4f";
  const auto with = [&](AnswerFault fault) {
    counter = 0x20;  // so that a good answer is the known one
    tag.behaviour().commands[kBellCommand].fault = fault;
    return write(ring);
  };
  const std::string good = "855c5473c3510d1c3237fc63fb915fc5";
  EXPECT_EQ(with(AnswerFault::None), good);
  EXPECT_EQ(with(AnswerFault::Corrupt), "845c5473c3510d1c3237fc63fb915fc5");
  EXPECT_EQ(with(AnswerFault::Short), good.substr(0, 30));
  EXPECT_EQ(with(AnswerFault::Long), good + "00");
  EXPECT_EQ(with(AnswerFault::Unencrypted), "010205002425262728292a2b2c2d2e2f");
  tag.behaviour().duplicateNotifications = true;
  EXPECT_EQ(with(AnswerFault::Replay), good + good);
  tag.inject(bytes("00ff"));
  EXPECT_EQ(sent.back(), "00ff");
}

TEST_F(VirtualTagTest, DropsAndDiesInsideItsObserver) {
  tag.behaviour().steps[Procedure::Subscribe] = {.fault = StepFault::Drop, .times = 1};
  EXPECT_FALSE(tag.subscribe(kCommand, /*enabled=*/true));
  EXPECT_EQ(drops, 1);
  EXPECT_TRUE(tag.subscribe(kCommand, /*enabled=*/true));
  std::string told;
  tag.setObserver([&](const TagEvent& event) {
    tag.setObserver(nullptr);
    told = event.text + " " + hex(event.plain);
  });
  tag.read(kCommand);
  EXPECT_EQ(told, "opening value with the tag's half of the key 000102030405060708090a0b0c0d0e0f");
}

}  // namespace
}  // namespace kvsim

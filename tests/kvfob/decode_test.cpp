// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The handshake and the commands of one link, decoded message by message.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KVFobLink/KVCommonTool.h"
#include "apps/kvfob/base/text.h"
#include "apps/kvfob/decode/exchange.h"
#include "protocol/token.h"

namespace kvfob {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Attribute protocol: opcode, then the handle, low byte first.
constexpr const char* kReadResponse = "0b";  // has no handle
constexpr const char* kWriteCommands = "12 2a00";
constexpr const char* kWriteDistance = "12 3000";
constexpr const char* kNotification = "1b 2a00";
constexpr const char* kTwoNotifications = "23 0300 0100 64 2a00 1000";  // 64 from handle 3 first

// Tokens: the address, the side's half of the key, the checksum (that of the tag does not count).
constexpr const char* kTagToken = "a1b2c3d4e5f6 1112131415161718 0000";
constexpr const char* kTagHalf = "1112131415161718";
constexpr const char* kOurHalf = "2122232425262728";

KVData bytes(const std::string& text) { return KVCommonTool::dataFromHexString(text); }

KVData encrypted(const std::string& block, KVBytes key) {
  return KVCommonTool::encryptWithData(bytes(block), key).value();
}

class ExchangeTest : public ::testing::Test {
 protected:
  void take(const std::string& start, KVBytes value) {
    KVData message = bytes(start);
    message.insert(message.end(), value.begin(), value.end());
    exchange->take(message);
  }
  void makeKey() {
    take(kReadResponse, opening);
    take(kWriteCommands, token);
    lines.clear();
  }
  void showSecrets(bool shown) {
    lines.clear();
    exchange.emplace(shown, [this](const std::string& line) { lines.push_back(line); });
  }
  ExchangeTest() { showSecrets(false); }

  const KVData opening = encrypted(kTagToken, kv::staticKey());
  const KVData token =
      KVCommonTool::encryptWithData(
          kv::verificationToken(u"a1b2c3d4e5f6", {0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x27, 0x28}),
          kv::staticKey())
          .value();
  const KVData key = bytes(std::string(kTagHalf) + kOurHalf);
  std::vector<std::string> lines;
  std::optional<Exchange> exchange;
};

TEST_F(ExchangeTest, HandshakeWithItsSecretsHiddenOrShown) {
  for (const char* start : {kReadResponse, kNotification, kTwoNotifications}) {
    for (const bool shown : {false, true}) {
      showSecrets(shown);
      take(start, opening);
      take(kWriteCommands, token);
      const auto secret = [&](const std::string& text) { return shown ? text : "(hidden)"; };
      EXPECT_THAT(lines, ElementsAre("< opening value, the tag's half of the key " +
                                         secret(kTagHalf) + "  " + hex(opening),
                                     "> verification token for a1b2c3d4e5f6, our half " +
                                         secret(kOurHalf) + "  " + hex(token),
                                     "  session key " + secret(std::string(kTagHalf) + kOurHalf)))
          << start;
    }
  }
}

TEST_F(ExchangeTest, FramesUnderTheSessionKey) {
  const struct {
    const char* start;
    const char* frame;  // type, length of code and payload, code, payload, random bytes
    const char* text;
  } kCases[] = {
      {kWriteCommands, "00 04 13 616263 eeeeeeeeeeeeeeeeeeee",
       "> bind, password (hidden) of 3 bytes"},
      {kWriteCommands, "00 02 05 00 eeeeeeeeeeeeeeeeeeeeeeee", "> bell on"},
      {kWriteCommands, "00 02 05 01 eeeeeeeeeeeeeeeeeeeeeeee", "> bell off"},
      {kWriteCommands, "00 02 1e 00 eeeeeeeeeeeeeeeeeeeeeeee", "> loss alert on"},
      {kWriteCommands, "00 03 20 5802 eeeeeeeeeeeeeeeeeeeeee", "> loss delay 600"},
      {kWriteCommands, "00 02 20 58 eeeeeeeeeeeeeeeeeeeeeeee", "> loss delay ?"},
      {kWriteCommands, "00 02 14 00 eeeeeeeeeeeeeeeeeeeeeeee", "> remove password"},
      {kWriteCommands, "00 02 4d 00 eeeeeeeeeeeeeeeeeeeeeeee", "> command 77 ?"},
      {kWriteCommands, "01 02 05 00 eeeeeeeeeeeeeeeeeeeeeeee", "> not a command frame"},
      {kNotification, "01 02 05 00 eeeeeeeeeeeeeeeeeeeeeeee", "< bell: accepted"},
      {kNotification, "01 02 13 03 eeeeeeeeeeeeeeeeeeeeeeee", "< bind: refused, status 3"},
      {kNotification, "01 01 20 eeeeeeeeeeeeeeeeeeeeeeeeee", "< loss delay: accepted"},
      {kNotification, "ff 02 05 01 eeeeeeeeeeeeeeeeeeeeeeee",
       "< bell (answer of the second kind): refused, status 1"},
      {kNotification, "01 02 0d 01 eeeeeeeeeeeeeeeeeeeeeeee", "< button"},
      {kTwoNotifications, "01 02 1e 00 eeeeeeeeeeeeeeeeeeeeeeee", "< loss alert: accepted"},
      {kNotification, "01 0f 05 00 eeeeeeeeeeeeeeeeeeeeeeee", "< not an answer frame"},
      {kNotification, "00 02 05 00 eeeeeeeeeeeeeeeeeeeeeeee", "< not an answer frame"},
  };
  makeKey();
  for (const auto& [start, frame, text] : kCases) {
    lines.clear();
    const auto block = encrypted(frame, key);
    take(start, block);
    EXPECT_THAT(lines, ElementsAre(std::string(text) + "  " + hex(block)));
  }
  showSecrets(true);
  makeKey();
  take(kWriteCommands, encrypted("00 04 13 616263 eeeeeeeeeeeeeeeeeeee", key));
  EXPECT_THAT(lines, ElementsAre(::testing::StartsWith("> bind, password abc of 3 bytes  ")));
}

TEST_F(ExchangeTest, LossDistanceInTheClear) {
  makeKey();
  for (const char* value : {"00", "f8", "ec", "05", "0500"}) take(kWriteDistance, bytes(value));
  EXPECT_THAT(lines, ElementsAre("> loss distance far  00", "> loss distance middle  f8",
                                 "> loss distance near  ec", "> loss distance ? (5)  05"));
}

TEST_F(ExchangeTest, WithoutTheOpeningValueNothingIsDecrypted) {
  take(kWriteCommands, token);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[1], "  no session key: the opening value is not in the capture");
  lines.clear();
  take(kWriteCommands, encrypted("00 02 05 00 eeeeeeeeeeeeeeeeeeeeeeee", key));
  take(kWriteDistance, bytes("ec"));
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(ExchangeTest, PassesOverMessagesThatAreCutShort) {
  makeKey();
  for (const char* message : {"", "0b", "12", "12 2a", "1b 2a", "23 2a00", "23 2a00 1000 0102"}) {
    take(message, {});
  }
  EXPECT_THAT(lines, IsEmpty());
}

}  // namespace
}  // namespace kvfob

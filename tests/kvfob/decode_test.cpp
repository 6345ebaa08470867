// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The handshake and the commands of one link, decoded message by message; and the input.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "KVFobLink/KVCommonTool.h"
#include "apps/kvfob/base/text.h"
#include "apps/kvfob/decode/btsnoop.h"
#include "apps/kvfob/decode/exchange.h"
#include "apps/kvfob/terminal/progress.h"
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
    facts.clear();
    exchange.emplace(shown, [this](const Found& found) {
      lines.push_back(found.text);
      auto members = found.facts;
      members.erase("wire");
      facts.push_back(found.event + " " + jsonLine(members));
    });
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
  std::vector<std::string> facts;
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
      const auto fact = [&](const std::string& text) {
        return shown ? "\"" + text + "\"}" : std::string("null}");
      };
      EXPECT_THAT(
          facts,
          ElementsAre(
              "opening-value {\"key_half\":" + fact(kTagHalf),
              "verification-token {\"address\":\"a1b2c3d4e5f6\",\"key_half\":" + fact(kOurHalf),
              "session-key {\"known\":true,\"key\":" + fact(std::string(kTagHalf) + kOurHalf)));
    }
  }
}

TEST_F(ExchangeTest, FramesUnderTheSessionKey) {
  const struct {
    const char* start;
    const char* frame;  // type, length of code and payload, code, payload, random bytes
    const char* text;
    const char* facts;
  } kCases[] = {
      {kWriteCommands, "00 04 13 616263 eeeeeeeeeeeeeeeeeeee",
       "> bind, password (hidden) of 3 bytes",
       R"(command {"command":"bind","value":null,"password":null,"password_bytes":3})"},
      {kWriteCommands, "00 02 05 00 eeeeeeeeeeeeeeeeeeeeeeee", "> bell on",
       R"(command {"command":"bell","value":"on"})"},
      {kWriteCommands, "00 02 05 01 eeeeeeeeeeeeeeeeeeeeeeee", "> bell off",
       R"(command {"command":"bell","value":"off"})"},
      {kWriteCommands, "00 02 1e 00 eeeeeeeeeeeeeeeeeeeeeeee", "> loss alert on",
       R"(command {"command":"loss alert","value":"on"})"},
      {kWriteCommands, "00 03 20 5802 eeeeeeeeeeeeeeeeeeeeee", "> loss delay 600",
       R"(command {"command":"loss delay","value":600})"},
      {kWriteCommands, "00 02 20 58 eeeeeeeeeeeeeeeeeeeeeeee", "> loss delay ?",
       R"(command {"command":"loss delay","value":null})"},
      {kWriteCommands, "00 02 14 00 eeeeeeeeeeeeeeeeeeeeeeee", "> remove password",
       R"(command {"command":"remove password","value":null})"},
      {kWriteCommands, "00 02 4d 00 eeeeeeeeeeeeeeeeeeeeeeee", "> command 77 ?",
       R"(command {"command":"command 77","value":null})"},
      {kWriteCommands, "01 02 05 00 eeeeeeeeeeeeeeeeeeeeeeee", "> not a command frame",
       R"(command {"command":null,"value":null})"},
      {kNotification, "01 02 05 00 eeeeeeeeeeeeeeeeeeeeeeee", "< bell: accepted",
       R"(answer {"command":"bell","second":false,"accepted":true,"status":0})"},
      {kNotification, "01 02 13 03 eeeeeeeeeeeeeeeeeeeeeeee", "< bind: refused, status 3",
       R"(answer {"command":"bind","second":false,"accepted":false,"status":3})"},
      {kNotification, "01 01 20 eeeeeeeeeeeeeeeeeeeeeeeeee", "< loss delay: accepted",
       R"(answer {"command":"loss delay","second":false,"accepted":true,"status":0})"},
      {kNotification, "ff 02 05 01 eeeeeeeeeeeeeeeeeeeeeeee",
       "< bell (answer of the second kind): refused, status 1",
       R"(answer {"command":"bell","second":true,"accepted":false,"status":1})"},
      {kNotification, "01 02 0d 01 eeeeeeeeeeeeeeeeeeeeeeee", "< button", "button {}"},
      {kTwoNotifications, "01 02 1e 00 eeeeeeeeeeeeeeeeeeeeeeee", "< loss alert: accepted",
       R"(answer {"command":"loss alert","second":false,"accepted":true,"status":0})"},
      {kNotification, "01 0f 05 00 eeeeeeeeeeeeeeeeeeeeeeee", "< not an answer frame",
       R"(answer {"command":null})"},
      {kNotification, "00 02 05 00 eeeeeeeeeeeeeeeeeeeeeeee", "< not an answer frame",
       R"(answer {"command":null})"},
  };
  makeKey();
  for (const auto& [start, frame, text, fact] : kCases) {
    lines.clear();
    facts.clear();
    const auto block = encrypted(frame, key);
    take(start, block);
    EXPECT_THAT(lines, ElementsAre(std::string(text) + "  " + hex(block)));
    EXPECT_THAT(facts, ElementsAre(fact));
  }
  showSecrets(true);
  makeKey();
  take(kWriteCommands, encrypted("00 05 13 61620a7f eeeeeeeeeeeeeeeeee", key));
  EXPECT_THAT(lines,
              ElementsAre(::testing::StartsWith("> bind, password ab\\x0a\\x7f of 4 bytes  ")))
      << "and nothing that steers a terminal";
  EXPECT_THAT(facts.back(), ::testing::HasSubstr(R"("password":"ab\n)"));
}

TEST_F(ExchangeTest, LossDistanceInTheClear) {
  makeKey();
  facts.clear();
  for (const char* value : {"00", "f8", "ec", "05", "0500"}) take(kWriteDistance, bytes(value));
  EXPECT_THAT(lines, ElementsAre("> loss distance far  00", "> loss distance middle  f8",
                                 "> loss distance near  ec", "> loss distance ? (5)  05"));
  EXPECT_EQ(facts.front(), R"(command {"command":"loss distance","value":"far"})");
  EXPECT_EQ(facts.back(), R"(command {"command":"loss distance","value":null})");
}

TEST_F(ExchangeTest, WithoutTheOpeningValueNothingIsDecrypted) {
  take(kWriteCommands, token);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[1], "  no session key: the opening value is not in the capture");
  EXPECT_EQ(facts[1], R"(session-key {"known":false,"key":null})");
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

// Gives a few bytes at a time, and counts how often it was asked.
class Drops final : public Input {
 public:
  explicit Drops(std::string text) : text_(std::move(text)) {}

  std::size_t read(std::span<std::uint8_t> room) override {
    ++reads;
    const auto size = std::min({room.size(), text_.size(), std::size_t{3}});
    std::copy_n(text_.begin(), size, room.begin());
    text_.erase(0, size);
    return size;
  }

  int reads = 0;

 private:
  std::string text_;
};

TEST(InputTest, LinesAndPiecesWhateverTheReadsGive) {
  Drops drops("ab\n\ncdefgh\nij");
  InputBuffer input(drops);
  EXPECT_FALSE(input.startsWith("abx"));
  EXPECT_EQ(drops.reads, 1) << "what is typed is not waited for in vain";
  EXPECT_TRUE(input.startsWith("ab\n\nc"));
  EXPECT_EQ(input.line(4), "ab");
  EXPECT_EQ(input.line(4), "");
  EXPECT_EQ(input.line(4), "cdef") << "no longer than asked for";
  EXPECT_EQ(input.position(), 8U);
  EXPECT_EQ(input.line(2), "gh") << "just as long";
  EXPECT_EQ(input.peek(9).size(), 2U);
  input.skip(1);
  EXPECT_EQ(input.line(4), "j");
  EXPECT_EQ(input.line(4), std::nullopt);
  EXPECT_EQ(input.position(), 13U);
}

TEST(InputTest, PacketsAreBounded) {
  const auto capture = [](std::size_t size, std::size_t there) {
    const std::string length{0, static_cast<char>(size >> 16U), static_cast<char>(size >> 8U),
                             static_cast<char>(size)};
    return std::string("btsnoop\0\0\0\0\x01\0\0\x07\xd1", 16) + length + length +
           std::string(16, '\0') + std::string(there, '\0');
  };
  const struct {
    std::size_t size;
    std::size_t there;
    std::uint64_t packets;
    const char* error;
  } kCases[] = {
      {0, 0, 1, ""},
      {65540, 65540, 1, ""},
      {65540, 65539, 0, "the capture ends inside packet 1, which begins at byte 16,"},
      {65541, 65541, 0, "packet 1, which begins at byte 16, claims to have 65541 bytes"},
      {0, 23, 1, "the capture ends inside packet 2, which begins at byte 40,"},
  };
  for (const auto& [size, there, packets, error] : kCases) {
    Drops drops(capture(size, there));
    InputBuffer input(drops);
    BtsnoopReader reader(input);
    while (reader.next()) {
    }
    EXPECT_EQ(reader.packets(), packets);
    EXPECT_THAT(reader.error(), ::testing::StartsWith(error));
    EXPECT_EQ(reader.error().empty(), *error == '\0') << reader.error();
  }
}

TEST(ProgressTest, TellsTheShareOrTheAmount) {
  const struct {
    std::uint64_t done;
    std::optional<std::uint64_t> total;
    const char* text;
  } kCases[] = {
      {999, {}, "999 bytes read"},
      {1000, {}, "1.0 kB read"},
      {2'500'000'000, {}, "2.5 GB read"},
      {7, 0, "7 bytes read"},
      {0, 2000, "[..............................]   0 % of 2.0 kB"},
      {1000, 2000, "[###############...............]  50 % of 2.0 kB"},
      {1999, 2000, "[#############################.]  99 % of 2.0 kB"},
      {3000, 2000, "[##############################] 100 % of 2.0 kB"},
  };
  for (const auto& [done, total, text] : kCases) EXPECT_EQ(progressText(done, total), text);
}

}  // namespace
}  // namespace kvfob

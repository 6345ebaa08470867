// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Command frames, checksums and the device-information flags.
#include <cstring>

#include "protocol/commands.h"
#include "protocol/token.h"
#include "tests/support/core_test.h"

namespace kvtest {
namespace {

class FrameTest : public CoreTest {};

TEST_F(FrameTest, BuildFillsUpWithRandomness) {
  const struct {
    std::uint64_t command;
    const char* payload;
    const char* frame;  // type 00, length, code, payload, random fill
  } cases[] = {
      {5, "00", "00020500 505152535455565758595a5b"},
      {32, "581b", "000320581b 505152535455565758595a"},
      {0x1FF, "aa", "0002ffaa 505152535455565758595a5b"},
      {19, "0102030405060708090a0b0c", "000d13 0102030405060708090a0b0c 50"},
      {19, "0102030405060708090a0b0c0d", "000e13 0102030405060708090a0b0c0d"},
  };
  for (const auto& c : cases) {
    random->next = 0x50;
    EXPECT_EQ(KVCommandInter::getCommandData(c.command, bytes(c.payload)), bytes(c.frame));
    EXPECT_EQ(random->next, 0x50 + 13 - bytes(c.payload).size());
  }
}

TEST_F(FrameTest, BuildRefusesAPayloadThatDoesNotFit) {
  for (const std::optional<KVData>& payload : {std::optional<KVData>(), {KVData{}}}) {
    EXPECT_EQ(KVCommandInter::getCommandData(5, payload), std::nullopt);
    EXPECT_EQ(took(), Lines{"log: Something wrong about appended data."});
  }
  for (const std::size_t size : {14u, 15u, 16u, 255u, 256u, 300u}) {
    EXPECT_EQ(KVCommandInter::getCommandData(5, KVData(size)), std::nullopt) << size;
  }
}

TEST_F(FrameTest, ParseTellsAnswersApart) {
  const struct {
    const char* frame;   // type, length, code, payload, fill
    const char* report;  // answer code, second code, payload; empty for no call
  } cases[] = {
      {"01020500 eeeeeeeeeeeeeeeeeeeeeeee", "5 0 00"},
      {"ff020501 eeeeeeeeeeeeeeeeeeeeeeee", "0 5 01"},
      {"01010d eeeeeeeeeeeeeeeeeeeeeeeeee", "13 0 "},
      {"0102ff00 eeeeeeeeeeeeeeeeeeeeeeee", "255 0 00"},
      {"ff01ff00 eeeeeeeeeeeeeeeeeeeeeeee", "0 255 "},
      {"010e05 000102030405060708090a0b0c", "5 0 000102030405060708090a0b0c"},
      {"010f05 000102030405060708090a0b0c", ""},
      {"010005 000102030405060708090a0b0c", ""},
      {"01ff05 000102030405060708090a0b0c", ""},
      {"018005 000102030405060708090a0b0c", ""},
      {"000205 00eeeeeeeeeeeeeeeeeeeeeeee", ""},
      {"020205 00eeeeeeeeeeeeeeeeeeeeeeee", ""},
      {"fe0205 00eeeeeeeeeeeeeeeeeeeeeeee", ""},
      {"", "0 0 absent"},
      {"010205", "0 0 absent"},
      {"01020500 eeeeeeeeeeeeeeeeeeeeee", "0 0 absent"},
      {"01020500 eeeeeeeeeeeeeeeeeeeeeeeeee", "0 0 absent"},
  };
  Lines reports;
  const auto parse = [&](const std::optional<KVData>& frame) {
    KVCommandInter::interCommandData(
        frame, [&](std::int64_t first, std::int64_t second, const std::optional<KVData>& payload) {
          reports.push_back(std::to_string(first) + " " + std::to_string(second) + " " +
                            (payload ? hex(*payload) : "absent"));
        });
    return std::exchange(reports, {});
  };
  for (const auto& c : cases) {
    EXPECT_EQ(parse(bytes(c.frame)), *c.report ? Lines{c.report} : Lines{}) << c.frame;
  }
  EXPECT_EQ(parse(std::nullopt), Lines{"0 0 absent"});
  KVCommandInter::interCommandData(bytes(cases[0].frame), nullptr);
}

// The values over 256 bytes and the seeded ones come from a bitwise division of the polynomials.
TEST(ChecksumTest, CatalogueValues) {
  KVData all(256);
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<std::uint8_t>(i);
  const struct {
    KVData data;
    unsigned arc, ccitt, seeded;
  } cases[] = {
      {bytes("313233343536373839"), 0xBB3D, 0x29B1, 0xEDEB},
      {bytes("01"), 0xC0C1, 0xF1D1, 0x1652},
      {bytes("80"), 0xA001, 0x7078, 0x97FB},
      {bytes("ffffff"), 0x8031, 0x1EF0, 0x363E},
      {all, 0xBAD3, 0x3FBD, 0x80C5},
      {{}, 0x0000, 0xFFFF, 0x1234},
  };
  const std::uint16_t seed = 0x1234;
  for (const auto& c : cases) {
    EXPECT_EQ(gen_crc16(c.data.data(), static_cast<std::uint16_t>(c.data.size())), c.arc);
    const auto size = static_cast<std::uint32_t>(c.data.size());
    EXPECT_EQ(crc16_compute(c.data.data(), size, nullptr), c.ccitt);
    EXPECT_EQ(crc16_compute(c.data.data(), size, &seed), c.seeded);
    EXPECT_EQ(KVCommonTool::crs16Checksum(c.data),
              (KVData{static_cast<std::uint8_t>(c.ccitt >> 8),
                      static_cast<std::uint8_t>(c.ccitt & 0xFF)}));
    for (std::uint32_t cut = 0; cut <= size; ++cut) {
      const auto head = crc16_compute(c.data.data(), cut, nullptr);
      EXPECT_EQ(crc16_compute(c.data.data() + cut, size - cut, &head), c.ccitt);
    }
  }
  EXPECT_EQ(gen_crc16(nullptr, 9), 0);
  const std::uint8_t byte = 0xFF;
  EXPECT_EQ(gen_crc16(&byte, 0), 0);
  const std::uint16_t zero = 0;
  EXPECT_EQ(crc16_compute(bytes("0102").data(), 2, &zero), 0x1373);
}

TEST(LossDelayTest, ReadsWhatItWrites) {
  for (const std::int64_t delay : {0, 1, 255, 256, 258, 6999, 7000}) {
    const auto payload = kv::lossDelayPayload(delay);
    ASSERT_TRUE(payload) << delay;
    EXPECT_EQ(kv::lossDelayOf(*payload), delay);
  }
  EXPECT_EQ(kv::lossDelayPayload(7001), std::nullopt);
}

TEST(TokenTest, RightChecksumMakesAVerificationToken) {
  // The address (6 bytes), the half (8 bytes), the checksum (2 bytes).
  const KVData token = bytes("a1b2c3d4e5f6 5051525354555657 9990");
  EXPECT_TRUE(kv::isVerificationToken(token));
  EXPECT_EQ(hex(kv::addressOf(token)), "a1b2c3d4e5f6");
  for (std::size_t i = 0; i < token.size(); ++i) {
    KVData wrong = token;
    wrong[i] ^= 0x01;
    EXPECT_FALSE(kv::isVerificationToken(wrong)) << i;
  }
  EXPECT_FALSE(kv::isVerificationToken(KVBytes(token).first(15)));
  EXPECT_FALSE(kv::isVerificationToken({}));
}

TEST(DeviceInfoTest, EachBitSetsItsFieldOnly) {
  const int fieldOfBit[] = {3, 0, 1, 2, 4, 5, -1, -1};
  for (int bit = 0; bit < 8; ++bit) {
    const std::uint8_t data[] = {0xFF, static_cast<std::uint8_t>(1 << bit)};
    dev_info_t info;
    std::memset(&info, 7, sizeof info);
    dev_info_decode(data, &info);
    KVData expected(6, 7);
    if (fieldOfBit[bit] >= 0) expected[static_cast<std::size_t>(fieldOfBit[bit])] = 1;
    KVData fields(sizeof info);
    std::memcpy(fields.data(), &info, sizeof info);
    EXPECT_EQ(fields, expected) << bit;
  }
}

}  // namespace
}  // namespace kvtest

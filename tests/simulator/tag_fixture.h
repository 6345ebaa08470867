// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// One link to a virtual tag. Blocks are made by the tag's own cipher, which tag_test.cpp holds
/// against known ones.
#ifndef TESTS_SIMULATOR_TAG_FIXTURE_H
#define TESTS_SIMULATOR_TAG_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "KVFobSimulator/VirtualTag.h"
#include "simulator/tag/wire.h"

namespace kvsim {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

// Handles, as layoutOf has them.
inline constexpr GattHandle kCommand = 0x0010;
inline constexpr GattHandle kSecondCommand = 0x0011;
inline constexpr GattHandle kDistance = 0x0040;
inline constexpr GattHandle kModelNumber = 0x0050;
inline constexpr GattHandle kManufacturer = 0x0052;

class TagLinkTest : public ::testing::Test, public TagLink {
 public:
  struct Sent {
    GattHandle handle;
    KVData value;
    std::chrono::nanoseconds delay;
  };

  TagLinkTest() {
    tag.setObserver([this](const TagEvent& event) {
      told.push_back(event.text);
      last = event;
    });
    tag.connect(*this);
  }
  ~TagLinkTest() override { tag.disconnect(); }

  void notify(GattHandle handle, KVData value, std::chrono::nanoseconds delay) override {
    sent.push_back({handle, std::move(value), delay});
  }
  void drop(std::chrono::nanoseconds delay) override { drops.push_back(delay); }

  /// "silence", "error 14", "ok" with the size of the value, and "+2 s" if it is late.
  static std::string text(const std::optional<GattAnswer>& answer) {
    if (!answer) return "silence";
    const std::string late =
        answer->delay == 0s ? "" : " +" + std::to_string(answer->delay / 1s) + " s";
    if (answer->attError != 0) return "error " + std::to_string(answer->attError) + late;
    return "ok" + (answer->value.empty() ? "" : ' ' + std::to_string(answer->value.size())) + late;
  }

  /// Reads the opening value and writes the token: the key of the session.
  Block agree(GattHandle handle = kCommand) {
    const auto opening = tag.read(handle);
    EXPECT_EQ(text(opening), "ok 16");
    const Block tagsHalf = decryptBlock(kFixedKey, *toBlock(opening->value));
    Block token = {0xA1, 0xB2, 0xC3, 0xD4, 0xE5, 0xF6};  // the tag's address, this side's half: 0
    const std::uint16_t sum = tokenChecksum(KVBytes(token).first(14));
    token[14] = static_cast<std::uint8_t>(sum >> 8);
    token[15] = static_cast<std::uint8_t>(sum);
    EXPECT_EQ(text(tag.write(handle, encryptBlock(kFixedKey, token))), "ok");
    Block key{};
    std::copy_n(tagsHalf.begin() + 6, 8, key.begin());
    return key;
  }

  /// Sends a request frame: the status of the answer, "none" without one, or what became of the
  /// write if it failed.
  std::string ask(const Block& key, std::uint8_t code, KVBytes payload) {
    return askRaw(key, frame(0x00, code, payload, Block{}));
  }
  std::string askRaw(const Block& key, const Block& plain, GattHandle handle = kCommand) {
    sent.clear();
    const std::string written = text(tag.write(handle, encryptBlock(key, plain)));
    if (written != "ok") return written;
    if (sent.empty()) return "none";
    EXPECT_EQ(sent[0].handle, handle);
    const Block answer = decryptBlock(key, *toBlock(sent.at(0).value));
    // Type 01, a code and a status: length 2.
    EXPECT_EQ(answer[0], 0x01);
    EXPECT_EQ(answer[1], 0x02);
    EXPECT_EQ(answer[2], plain[2]);
    return std::to_string(answer[3]);
  }
  std::string bind(const Block& key, std::string_view password = "secret") {
    return ask(key, kBindCommand, KVData(password.begin(), password.end()));
  }
  Block reachSession() {
    tag.subscribe(kCommand, /*enabled=*/true);
    const Block key = agree();
    EXPECT_EQ(bind(key), "0");
    return key;
  }

  Lines took() { return std::exchange(told, {}); }

  std::vector<Sent> sent;
  std::vector<std::chrono::nanoseconds> drops;
  Lines told;
  TagEvent last;
  VirtualTag tag{{.address = "a1b2c3d4e5f6"}};
};

}  // namespace kvsim

#endif  // TESTS_SIMULATOR_TAG_FIXTURE_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "protocol/advertisement.h"

#include <cstddef>

#include "protocol/hex.h"

namespace kv {
namespace {

constexpr std::size_t kShortFrame = 10;
constexpr std::size_t kLongFrame = 11;  // with a model
constexpr std::size_t kTypeOffset = 0;
constexpr std::uint8_t kFrameType = 0xA1;
constexpr std::size_t kProductOffset = 1;
constexpr std::uint8_t kFirstProduct = 0x0B;
constexpr std::uint8_t kLastProduct = 0x0C;
constexpr std::size_t kBatteryOffset = 2;
constexpr std::size_t kAddressOffset = 3;
constexpr std::size_t kAddressSize = 6;
constexpr std::size_t kRadioTxOffset = 9;
constexpr std::size_t kModelOffset = 10;
constexpr std::int64_t kNoModel = -1;

}  // namespace

const KVUUID& advertisedServiceUuid() {
  static const KVUUID kUuid(0xFFE1);
  return kUuid;
}

std::optional<AdvertisedFrame> AdvertisedFrame::accept(KVBytes bytes) {
  if (bytes.size() != kShortFrame && bytes.size() != kLongFrame) return std::nullopt;
  if (bytes[kTypeOffset] != kFrameType) return std::nullopt;
  const std::uint8_t product = bytes[kProductOffset];
  if (product < kFirstProduct || product > kLastProduct) return std::nullopt;
  return AdvertisedFrame(bytes);
}

std::int64_t AdvertisedFrame::battery() const { return bytes_[kBatteryOffset]; }

std::optional<std::string> AdvertisedFrame::mac() const {
  // On the air the most significant byte is the last.
  std::optional<std::string> text(std::in_place, 2 * kAddressSize, '0');
  const auto address = bytes_.subspan<kAddressOffset, kAddressSize>();
  for (std::size_t i = 0; i < kAddressSize; ++i) {
    writeHex(address[kAddressSize - 1 - i], text->data() + 2 * i);
  }
  return text;
}

std::int64_t AdvertisedFrame::radioTx() const {
  return static_cast<std::int8_t>(bytes_[kRadioTxOffset]);
}

std::int64_t AdvertisedFrame::model() const {
  return bytes_.size() == kLongFrame ? bytes_[kModelOffset] : kNoModel;
}

}  // namespace kv

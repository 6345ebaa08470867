// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "protocol/token.h"

#include <algorithm>
#include <string_view>

#include "protocol/block.h"
#include "protocol/crc16.h"
#include "protocol/hex.h"

namespace kv {
namespace {

constexpr std::string_view kStaticKey = "QPRTVX-Harbonics";
constexpr std::size_t kAddressLength = 12;
constexpr std::size_t kAddressSize = 6;
constexpr std::size_t kHalfOffset = kAddressSize;
constexpr std::size_t kChecksumOffset = kHalfOffset + kRandomHalfSize;

}  // namespace

KVBytes staticKey() {
  return {reinterpret_cast<const std::uint8_t*>(kStaticKey.data()), kStaticKey.size()};
}

std::optional<KVBytes> randomHalf(KVBytes token) {
  if (token.size() != kBlockSize) return std::nullopt;
  return token.subspan(kHalfOffset, kRandomHalfSize);
}

KVBytes addressOf(KVBytes token) { return token.first(kAddressSize); }

bool isVerificationToken(KVBytes token) {
  return token.size() == kBlockSize &&
         std::ranges::equal(checksum(token.first(kChecksumOffset)), token.subspan(kChecksumOffset));
}

KVData verificationToken(const std::u16string& address,
                         const std::array<std::uint8_t, kRandomHalfSize>& half) {
  // What is not ASCII is no digit.
  KVData token = bytesOfHex(
      address, [](char16_t unit) { return unit < 0x80 ? static_cast<char>(unit) : '?'; });
  token.reserve(kBlockSize);  // growing would leave a copy of the half behind that nobody wipes
  token.insert(token.end(), half.begin(), half.end());
  const auto sum = checksum(token);
  token.insert(token.end(), sum.begin(), sum.end());
  return token;
}

bool hasAddressLength(const std::u16string& address) { return address.size() == kAddressLength; }

}  // namespace kv

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "protocol/crc16.h"

namespace {

constexpr unsigned kArcPolynomial = 0x8005;
constexpr unsigned kCcittInitial = 0xFFFF;
constexpr int kWidth = 16;

// Shifts one bit of input into the register of a CRC whose input comes first bit first.
unsigned shiftIn(unsigned crc, unsigned bit) {
  const unsigned shifted = ((crc << 1U) | bit) & 0xFFFFU;
  return (crc & 0x8000U) != 0 ? shifted ^ kArcPolynomial : shifted;
}

std::uint16_t reversed(unsigned value) {
  unsigned result = 0;
  for (int bit = 0; bit < kWidth; ++bit) result = (result << 1U) | ((value >> bit) & 1U);
  return static_cast<std::uint16_t>(result);
}

}  // namespace

extern "C" {

uint16_t gen_crc16(const uint8_t* data, uint16_t size) {
  if (data == nullptr) return 0;
  unsigned crc = 0;
  for (std::uint16_t i = 0; i < size; ++i) {
    for (int bit = 0; bit < 8; ++bit) crc = shiftIn(crc, (unsigned{data[i]} >> bit) & 1U);
  }
  for (int bit = 0; bit < kWidth; ++bit) crc = shiftIn(crc, 0);
  return reversed(crc);
}

uint16_t crc16_compute(const uint8_t* data, uint32_t size, const uint16_t* seed) {
  unsigned crc = seed != nullptr ? *seed : kCcittInitial;
  for (std::uint32_t i = 0; i < size; ++i) {
    crc = ((crc >> 8U) | (crc << 8U)) & 0xFFFFU;
    crc ^= data[i];
    crc ^= (crc & 0xFFU) >> 4U;
    crc ^= (crc << 12U) & 0xFFFFU;
    crc ^= (crc & 0xFFU) << 5U;
  }
  return static_cast<std::uint16_t>(crc);
}

}  // extern "C"

std::array<std::uint8_t, 2> kv::checksum(KVBytes data) {
  const std::uint16_t crc =
      crc16_compute(data.data(), static_cast<std::uint32_t>(data.size()), nullptr);
  return {static_cast<std::uint8_t>(crc >> 8U), static_cast<std::uint8_t>(crc & 0xFFU)};
}

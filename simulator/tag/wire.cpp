// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "simulator/tag/wire.h"

#include <mbedtls/aes.h>

#include <algorithm>
#include <charconv>

namespace kvsim {

const Block kFixedKey = {'Q', 'P', 'R', 'T', 'V', 'X', '-', 'H',
                         'a', 'r', 'b', 'o', 'n', 'i', 'c', 's'};

namespace {

constexpr unsigned kKeyBits = 128;

using SetKey = int (*)(mbedtls_aes_context*, const unsigned char*, unsigned);

Block transform(const Block& key, const Block& in, SetKey setKey, int mode) {
  mbedtls_aes_context context;
  mbedtls_aes_init(&context);
  Block out{};
  setKey(&context, key.data(), kKeyBits);
  mbedtls_aes_crypt_ecb(&context, mode, in.data(), out.data());
  mbedtls_aes_free(&context);
  return out;
}

}  // namespace

Block encryptBlock(const Block& key, const Block& plain) {
  return transform(key, plain, mbedtls_aes_setkey_enc, MBEDTLS_AES_ENCRYPT);
}

Block decryptBlock(const Block& key, const Block& wire) {
  return transform(key, wire, mbedtls_aes_setkey_dec, MBEDTLS_AES_DECRYPT);
}

std::optional<Block> toBlock(KVBytes bytes) {
  Block block;
  if (bytes.size() != block.size()) return std::nullopt;
  std::copy(bytes.begin(), bytes.end(), block.begin());
  return block;
}

std::uint16_t tokenChecksum(KVBytes bytes) {
  unsigned remainder = 0xFFFF;
  for (const std::uint8_t byte : bytes) {
    remainder ^= static_cast<unsigned>(byte) << 8;
    for (int bit = 0; bit < 8; ++bit) {
      remainder = (remainder & 0x8000) != 0 ? (remainder << 1) ^ 0x1021 : remainder << 1;
    }
  }
  return static_cast<std::uint16_t>(remainder);
}

std::optional<AddressBytes> parseAddress(std::string_view text) {
  AddressBytes address{};
  if (text.size() != 2 * address.size()) return std::nullopt;
  for (std::size_t i = 0; i < address.size(); ++i) {
    const char* const pair = text.data() + 2 * i;
    const auto [end, error] = std::from_chars(pair, pair + 2, address[i], 16);
    if (error != std::errc() || end != pair + 2) return std::nullopt;
  }
  return address;
}

std::string addressText(const AddressBytes& address) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : address) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

std::optional<Request> parseRequest(const Block& plain) {
  const std::size_t length = plain[1];  // the code and the payload
  if (plain[0] != 0x00 || length < 2 || length > 14) return std::nullopt;
  const auto payload = plain.begin() + 3;
  return Request{plain[2], KVData(payload, payload + static_cast<std::ptrdiff_t>(length - 1))};
}

Block frame(std::uint8_t type, std::uint8_t code, KVBytes payload, const Block& fill) {
  Block block = fill;
  block[0] = type;
  block[1] = static_cast<std::uint8_t>(payload.size() + 1);
  block[2] = code;
  std::copy(payload.begin(), payload.end(), block.begin() + 3);
  return block;
}

}  // namespace kvsim

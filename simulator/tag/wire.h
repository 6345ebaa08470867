// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What travels between a tag and its client, byte by byte.
#ifndef SIMULATOR_TAG_WIRE_H
#define SIMULATOR_TAG_WIRE_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KVFobLink/KVTypes.h"
#include "KVFobSimulator/TagBehaviour.h"

namespace kvsim {

using Block = std::array<std::uint8_t, 16>;
using AddressBytes = std::array<std::uint8_t, 6>;  // most significant first

/// The key of the two token blocks, the same for every tag.
extern const Block kFixedKey;

Block encryptBlock(const Block& key, const Block& plain);
Block decryptBlock(const Block& key, const Block& wire);
/// Absent unless there are exactly 16 bytes.
std::optional<Block> toBlock(KVBytes bytes);

/// CRC-16 with polynomial 0x1021, initial value 0xFFFF, most significant bit first.
std::uint16_t tokenChecksum(KVBytes bytes);

/// Reads 12 hexadecimal digits; absent for anything else.
std::optional<AddressBytes> parseAddress(std::string_view text);
std::string addressText(const AddressBytes& address);

/// What the client asks for: 00, length, code, payload of 1 to 13 bytes, fill.
struct Request {
  std::uint8_t code = 0;
  KVData payload;
};
/// Absent for a wrong type or length byte.
std::optional<Request> parseRequest(const Block& plain);

/// Writes type, length, code and payload (13 bytes at most) over the first bytes of `fill`.
Block frame(std::uint8_t type, std::uint8_t code, KVBytes payload, const Block& fill);

}  // namespace kvsim

#endif  // SIMULATOR_TAG_WIRE_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The two tokens of a handshake, each one block under the fixed key, and the session key that they
/// make.
#ifndef PROTOCOL_TOKEN_H
#define PROTOCOL_TOKEN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "KVFobLink/KVTypes.h"

namespace kv {

/// The key of both tokens, the same in every tag.
KVBytes staticKey();

/// Of the random half that each side gives to the session key, in bytes.
inline constexpr std::size_t kRandomHalfSize = 8;

/// A side's half, from its token in the clear:
///
///     offset  0                      6             14
///             the tag's address (6)  its half (8)  CRC-16/CCITT-FALSE of bytes 0 to 13 (2)
///
/// Of the tag's token only the half counts. Absent when it is no block.
std::optional<KVBytes> randomHalf(KVBytes token);

/// The address in a token.
KVBytes addressOf(KVBytes token);

/// Whether a block in the clear is a verification token: its checksum is right.
bool isVerificationToken(KVBytes token);

/// Our token, in the clear. Fewer bytes than a block, and so of no use, when the address is not 12
/// digits: a space in it counts for nothing.
KVData verificationToken(const std::u16string& address,
                         const std::array<std::uint8_t, kRandomHalfSize>& half);

/// Whether an address text has the length of one, in 16-bit units.
bool hasAddressLength(const std::u16string& address);

}  // namespace kv

#endif  // PROTOCOL_TOKEN_H

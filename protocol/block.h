// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The cipher block: everything secret travels as one block of AES-128.
#ifndef PROTOCOL_BLOCK_H
#define PROTOCOL_BLOCK_H

#include <cstddef>
#include <optional>

#include "KVFobLink/KVPlatform.h"
#include "KVFobLink/KVTypes.h"

namespace kv {

/// Of a block and of a key, in bytes (FIPS 197).
inline constexpr std::size_t kBlockSize = 16;

/// Encrypts or decrypts one block in ECB mode. Absent, with a line in the log, when the data or the
/// key is not of a block's size, or when the cipher fails.
std::optional<KVData> cipherBlock(const KVCipher& cipher, KVLog& log, KVBytes data, KVBytes key,
                                  bool encrypt);

}  // namespace kv

#endif  // PROTOCOL_BLOCK_H

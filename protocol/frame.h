// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The command frame: the plaintext block of every command and of every answer.
#ifndef PROTOCOL_FRAME_H
#define PROTOCOL_FRAME_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "KVFobLink/KVPlatform.h"
#include "KVFobLink/KVTypes.h"

namespace kv {

/// The most bytes that a frame carries, and so the longest password.
inline constexpr std::size_t kMostPayload = 13;

/// What the first byte of a frame tells.
enum class FrameType : std::uint8_t { Command = 0x00, Answer = 0x01, SecondAnswer = 0xFF };

/// A view of a frame; its bytes must outlive it.
///
///     offset  0     1               2     3            3 + n
///             type  1 + n (length)  code  n payload    13 - n random
struct Frame {
  std::uint8_t type = 0;
  std::uint8_t code = 0;
  KVBytes payload;

  bool is(FrameType kind) const { return type == static_cast<std::uint8_t>(kind); }

  /// Reads a block; absent when its length byte does not fit, or when it is no block.
  static std::optional<Frame> read(KVBytes block);
};

/// The block of a command, filled up at random. Only the low 8 bits of the code are sent. Empty
/// with a payload of more than 13 bytes; without one also a line in the log.
KVData commandFrame(std::uint64_t code, KVBytes payload, KVRandom& random, KVLog& log);

}  // namespace kv

#endif  // PROTOCOL_FRAME_H

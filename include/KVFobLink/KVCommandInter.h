// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The command frame: the 16-byte plaintext block of every command to a tag and of every answer.
#ifndef KVFOBLINK_KVCOMMANDINTER_H
#define KVFOBLINK_KVCOMMANDINTER_H

#include <cstdint>
#include <functional>
#include <optional>

#include "KVFobLink/KVExport.h"
#include "KVFobLink/KVTypes.h"

/// Builds and parses command frames. Plaintext only: the caller encrypts and decrypts.
///
///     offset  0     1               2        3            3 + n
///             type  1 + n (length)  command  n payload    13 - n random
///
/// The type is 0x00 in a command, 0x01 in an answer, and 0xFF in an answer of the second kind.
/// Multi-byte values inside a payload are little-endian.
class KVFOB_EXPORT KVCommandInter {
 public:
  /// The answer's code, the code of an answer of the second kind, and the payload. Exactly one of
  /// the codes is meaningful, the other is 0.
  using Completion = std::function<void(std::int64_t answerCode, std::int64_t secondCode,
                                        const std::optional<KVData>& payload)>;

  /// Builds the frame of a command, with fresh random fill: equal commands give different frames.
  ///
  ///     KVCommandInter::getCommandData(5, KVData{0x00});  // 00 02 05 00, then 12 random bytes
  ///
  /// @param command  Only its low 8 bits are used.
  /// @param append   The payload, 1 to 13 bytes. An absent or empty one logs
  ///                 "Something wrong about appended data."; that and a longer one give nothing.
  /// @return 16 bytes, or nothing. Any thread.
  static std::optional<KVData> getCommandData(std::uint64_t command,
                                              const std::optional<KVData>& append);

  /// Takes an incoming frame apart. Calls the completion before it returns, at most once:
  /// - a frame that is absent or not 16 bytes long: (0, 0, absent);
  /// - an answer (type 0x01): (code, 0, payload);
  /// - an answer of the second kind (type 0xFF): (0, code, payload);
  /// - a length byte that does not fit, or any other type: not at all.
  /// An absent completion is ignored. Any thread.
  static void interCommandData(const std::optional<KVData>& data, const Completion& completion);

  KVCommandInter() = delete;
};

#endif  // KVFOBLINK_KVCOMMANDINTER_H

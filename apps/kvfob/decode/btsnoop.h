// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Captures in the btsnoop format, as `btmon -w` and most Bluetooth stacks write them.
#ifndef APPS_KVFOB_DECODE_BTSNOOP_H
#define APPS_KVFOB_DECODE_BTSNOOP_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "KVFobLink/KVTypes.h"
#include "apps/kvfob/decode/byte_reader.h"

namespace kvfob {

/// One packet between host and controller.
struct HciPacket {
  enum class Kind { Other, Event, Acl };

  Kind kind = Kind::Other;
  bool received = false;  ///< From the controller.
  unsigned adapter = 0;
  std::chrono::system_clock::time_point time;
  KVBytes bytes;  ///< Without a packet indicator.
};

/// Reads a capture that is in memory.
class BtsnoopReader {
 public:
  /// Whether these are the first bytes of a capture.
  static bool recognises(KVBytes file);

  /// `file` must outlive the reader.
  explicit BtsnoopReader(KVBytes file);

  /// The next packet; nothing at the end, and after an error.
  std::optional<HciPacket> next();

  /// Why reading ended early; empty when it did not.
  const std::string& error() const { return error_; }

 private:
  ByteReader reader_;
  std::uint32_t link_ = 0;
  std::string error_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_DECODE_BTSNOOP_H

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
#include "apps/kvfob/decode/input.h"

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

/// Reads a capture packet by packet.
class BtsnoopReader {
 public:
  /// Whether a capture begins here.
  static bool recognises(InputBuffer& input);

  /// `input` must outlive the reader.
  explicit BtsnoopReader(InputBuffer& input);

  /// The next packet, whose bytes are there until the next call; nothing at the end, and after an
  /// error.
  std::optional<HciPacket> next();

  /// How many packets there were.
  std::uint64_t packets() const { return packets_; }

  /// Why reading ended early; empty when it did not.
  const std::string& error() const { return error_; }

 private:
  std::string where() const;

  InputBuffer& input_;
  std::uint32_t link_ = 0;
  std::uint64_t packets_ = 0;
  std::size_t shown_ = 0;  // what the packet that was returned last takes in the input
  std::string error_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_DECODE_BTSNOOP_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The commands of a tag: their codes, their payloads, and how a refusal reads. A further command
/// is a further row here.
#ifndef PROTOCOL_COMMANDS_H
#define PROTOCOL_COMMANDS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "KVFobLink/KVTrackerTypes.h"
#include "KVFobLink/KVTypes.h"

namespace kv {

/// One command. The answer carries the same code, and a status.
struct Command {
  std::uint8_t code;
  std::string_view name;
  std::string_view refusal;  ///< The domain of the error that reports a refusal,
  std::int64_t refusalCode;  ///< and its code.
};

inline constexpr Command kBell{5, "bell", "ring device failed.", 200};
inline constexpr Command kBind{19, "bind", "error password.", 100};
// The text reads like a success; applications know it as it is.
inline constexpr Command kRemovePassword{20, "remove password", "password removed.", 500};
inline constexpr Command kLossAlert{30, "loss alert", "write loss alert failed.", 300};
inline constexpr Command kLossDelay{32, "loss delay", "write loss delay failed.", 400};

inline constexpr std::array kCommands{kBell, kBind, kRemovePassword, kLossAlert, kLossDelay};

/// What the tag sends on its own when its button is pressed, with no status.
inline constexpr std::uint8_t kButtonEvent = 13;

/// The place of a code in `kCommands`; absent when none has it.
constexpr std::optional<std::size_t> commandIndex(std::int64_t code) {
  for (std::size_t i = 0; i < kCommands.size(); ++i) {
    if (kCommands[i].code == code) return i;
  }
  return std::nullopt;
}

/// Whether an answer reports success: its status, the first byte, is 0, or there is none.
inline bool accepts(KVBytes payload) { return payload.empty() || payload.front() == 0; }

/// The payload of the bell and of the loss alert: switches are inverted on the wire.
inline KVData switchPayload(bool on) { return {static_cast<std::uint8_t>(on ? 0x00 : 0x01)}; }

/// The payload of the loss delay, least significant byte first; absent outside 0 to 7000.
inline std::optional<KVData> lossDelayPayload(std::int64_t delay) {
  if (delay < 0 || delay > 7000) return std::nullopt;
  return KVData{static_cast<std::uint8_t>(delay & 0xFF), static_cast<std::uint8_t>(delay >> 8)};
}

/// The delay that such a payload of two bytes sets.
inline std::int64_t lossDelayOf(KVBytes payload) { return payload[0] | payload[1] << 8; }

/// The payload of the password's removal.
inline KVData removePasswordPayload() { return {0x00}; }

/// The byte that sets a loss distance, a signed number. It is written to a characteristic of its
/// own, without a frame and in the clear. Absent for what is none of `KVDistance`.
inline std::optional<std::uint8_t> distanceByte(std::uint64_t level) {
  if (level == KVDistanceFar) return std::uint8_t{0};
  if (level == KVDistanceMiddle) return static_cast<std::uint8_t>(-8);
  if (level == KVDistanceNear) return static_cast<std::uint8_t>(-20);
  return std::nullopt;
}

}  // namespace kv

#endif  // PROTOCOL_COMMANDS_H

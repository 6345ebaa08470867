/// The command codes. An answer carries the code of its command.
#ifndef TRACKER_WIRE_H
#define TRACKER_WIRE_H

#include <cstdint>

namespace kv {

inline constexpr std::uint8_t kBellCommand = 5;
inline constexpr std::uint8_t kButtonEvent = 13;  ///< Sent by the tag on its own.
inline constexpr std::uint8_t kBindCommand = 19;
inline constexpr std::uint8_t kRemovePasswordCommand = 20;
inline constexpr std::uint8_t kLossAlertCommand = 30;
inline constexpr std::uint8_t kLossDelayCommand = 32;

}  // namespace kv

#endif  // TRACKER_WIRE_H

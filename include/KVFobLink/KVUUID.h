// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A Bluetooth UUID.
#ifndef KVFOBLINK_KVUUID_H
#define KVFOBLINK_KVUUID_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KVFobLink/KVExport.h"

/// A 128-bit UUID. A 16-bit UUID and its expansion on the Bluetooth Base UUID
/// (Bluetooth Core Specification, Vol 3, Part B, 2.5.1) are the same value.
///
///     KVUUID::fromString("0000180a-0000-1000-8000-00805f9b34fb") == KVUUID(0x180A);  // true
///     KVUUID(0x180A).string();                                                       // "180A"
class KVFOB_EXPORT KVUUID {
 public:
  /// The 16-bit UUID `value`.
  explicit KVUUID(std::uint16_t value);

  /// Reads four hexadecimal digits or the 36-character form, in either letter case; nothing of
  /// anything else.
  static std::optional<KVUUID> fromString(std::string_view text);

  /// The canonical text in upper case: four digits for a 16-bit UUID, else the 36-character form.
  std::string string() const;

  friend bool operator==(const KVUUID&, const KVUUID&) = default;

 private:
  explicit KVUUID(const std::array<std::uint8_t, 16>& bytes) : bytes_(bytes) {}

  std::array<std::uint8_t, 16> bytes_;  // most significant byte first
};

#endif  // KVFOBLINK_KVUUID_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The value types that the whole library shares.
#ifndef KVFOBLINK_KVTYPES_H
#define KVFOBLINK_KVTYPES_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// Bytes that are owned. An absent buffer is `std::nullopt`.
using KVData = std::vector<std::uint8_t>;

/// Bytes that are only read, for the time of the call.
using KVBytes = std::span<const std::uint8_t>;

/// The library's only error form.
struct KVError {
  /// The human-readable message itself; there is no separate description.
  std::string domain;
  /// 100 to 500 for what a tag refuses (see each command) and for the bind time-out; one of
  /// `KVBluetoothErrorCode` for what a radio reports.
  std::int64_t code = 0;
  /// Further facts. Always absent in errors that the library raises itself.
  std::optional<std::map<std::string, std::string>> userInfo;

  friend bool operator==(const KVError&, const KVError&) = default;
};

/// Takes the result of an operation on a tag: (true, absent) or (false, error). It is called on
/// the event thread.
using KVResultCallback = std::function<void(bool success, const std::optional<KVError>& error)>;

#endif  // KVFOBLINK_KVTYPES_H

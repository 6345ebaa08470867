// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The advertisement decoder.
#ifndef KVFOBLINK_KVUTILS_H
#define KVFOBLINK_KVUTILS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "KVFobLink/KVExport.h"
#include "KVFobLink/KVTypes.h"

/// Decodes the service data with which a tag announces itself:
///
///     offset  0     1           2        3 to 8                  9               10
///             0xA1  0x0B, 0x0C  battery  address,                transmit power  model
///                                        least significant       (signed)        (may be missing)
///                                        byte first
class KVFOB_EXPORT KVUtils {
 public:
  /// What `validateAdv` reports. `rssi` is the caller's own value in dBm, absent when it gave none.
  using Completion = std::function<void(bool valid, std::int64_t battery,
                                        const std::optional<std::string>& mac, std::int64_t radioTx,
                                        std::optional<std::int64_t> rssi, std::int64_t model)>;

  /// Decodes one frame and calls the completion exactly once, before it returns.
  ///
  /// - Accepted: (true, battery 0 to 255 as sent, the address as 12 lower-case hexadecimal digits,
  ///   transmit power -128 to 127, the given rssi, model 0 to 255 or -1 in a frame of 10 bytes).
  /// - Rejected, for its length, type or product: (false, -1, absent, -1, -100, -1).
  ///
  /// An absent completion is ignored. Any thread.
  static void validateAdv(KVBytes data, std::optional<std::int64_t> rssi,
                          const Completion& completion);

  KVUtils() = delete;
};

#endif  // KVFOBLINK_KVUTILS_H

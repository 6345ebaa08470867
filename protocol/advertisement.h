// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What a tag advertises.
#ifndef PROTOCOL_ADVERTISEMENT_H
#define PROTOCOL_ADVERTISEMENT_H

#include <cstdint>
#include <optional>
#include <string>

#include "KVFobLink/KVTypes.h"
#include "KVFobLink/KVUUID.h"

namespace kv {

/// The service under whose UUID a tag advertises its frame.
const KVUUID& advertisedServiceUuid();

/// A view of the frame of a supported tag; its bytes must outlive it. Allocates nothing.
///
///     offset  0     1           2        3 to 8                  9               10
///             0xA1  0x0B, 0x0C  battery  address,                transmit power  model
///                                        least significant       (signed)        (may be missing)
///                                        byte first
class AdvertisedFrame {
 public:
  /// Absent when the bytes are no such frame.
  static std::optional<AdvertisedFrame> accept(KVBytes bytes);

  /// 0 to 255.
  std::int64_t battery() const;
  /// 12 lower-case hexadecimal digits, most significant byte first. Always there; optional because
  /// that is how it is handed on.
  std::optional<std::string> mac() const;
  /// -128 to 127 dBm.
  std::int64_t radioTx() const;
  /// 0 to 255, or -1 in a frame without a model.
  std::int64_t model() const;

 private:
  explicit AdvertisedFrame(KVBytes bytes) : bytes_(bytes) {}

  KVBytes bytes_;
};

}  // namespace kv

#endif  // PROTOCOL_ADVERTISEMENT_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Bounded reading of bytes that nobody vouches for.
#ifndef APPS_KVFOB_DECODE_BYTE_READER_H
#define APPS_KVFOB_DECODE_BYTE_READER_H

#include <cstddef>
#include <cstdint>

#include "KVFobLink/KVTypes.h"

namespace kvfob {

/// Reads from the front of a buffer. Reading past its end gives zeros and nothing, and clears `ok`.
class ByteReader {
 public:
  explicit ByteReader(KVBytes bytes) : left_(bytes) {}

  bool ok() const { return ok_; }
  bool atEnd() const { return left_.empty(); }
  KVBytes rest() const { return left_; }

  KVBytes take(std::size_t count) {
    if (count > left_.size()) {
      ok_ = false;
      left_ = {};
      return {};
    }
    const KVBytes taken = left_.first(count);
    left_ = left_.subspan(count);
    return taken;
  }

  void skip(std::size_t count) { take(count); }

  std::uint8_t u8() { return static_cast<std::uint8_t>(littleEndian(1)); }
  std::uint16_t u16() { return static_cast<std::uint16_t>(littleEndian(2)); }
  std::uint64_t bigEndian(std::size_t size) {
    std::uint64_t value = 0;
    for (const std::uint8_t byte : take(size)) value = (value << 8U) | byte;
    return value;
  }

 private:
  std::uint64_t littleEndian(std::size_t size) {
    std::uint64_t value = 0;
    unsigned shift = 0;
    for (const std::uint8_t byte : take(size)) {
      value |= std::uint64_t{byte} << shift;
      shift += 8;
    }
    return value;
  }

  KVBytes left_;
  bool ok_ = true;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_DECODE_BYTE_READER_H

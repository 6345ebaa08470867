/// What a tag says in its service data.
#ifndef MANAGER_ADVERTISED_FRAME_H
#define MANAGER_ADVERTISED_FRAME_H

#include <cstdint>
#include <optional>
#include <string>

#include "KVFobLink/KVTypes.h"

namespace kv {

/// A view of the frame of a supported tag; its bytes must outlive it. Allocates nothing.
class AdvertisedFrame {
 public:
  /// Absent when the bytes are no such frame.
  static std::optional<AdvertisedFrame> accept(KVBytes bytes);

  std::int64_t battery() const;
  std::optional<std::string> mac() const;  ///< Always there, in the form in which it is reported.
  std::int64_t radioTx() const;
  std::int64_t model() const;

 private:
  explicit AdvertisedFrame(KVBytes bytes) : bytes_(bytes) {}

  KVBytes bytes_;
};

}  // namespace kv

#endif  // MANAGER_ADVERTISED_FRAME_H

/// Decoding of a tag's service data.
#ifndef MANAGER_ADVERTISED_FIELDS_H
#define MANAGER_ADVERTISED_FIELDS_H

#include <cstdint>
#include <optional>
#include <string>

#include "KVFobLink/KVTypes.h"

namespace kv {

struct AdvertisedFields {
  std::int64_t battery = 0;
  std::optional<std::string> mac;  ///< Always there, in the form in which it is reported.
  std::int64_t radioTx = 0;
  std::int64_t model = 0;
};

/// Absent when the frame is not a supported tag's. Allocates nothing.
std::optional<AdvertisedFields> decodeAdvertisement(KVBytes frame);

}  // namespace kv

#endif  // MANAGER_ADVERTISED_FIELDS_H

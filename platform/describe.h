// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// How absent values and errors read in the log.
#ifndef PLATFORM_DESCRIBE_H
#define PLATFORM_DESCRIBE_H

#include <optional>
#include <string>

#include "KVFobLink/KVTypes.h"

namespace kv {

inline std::string describe(const std::optional<std::string>& text) {
  return text.value_or("(null)");
}

inline std::string describe(const std::optional<KVError>& error) {
  return error ? error->domain + " (" + std::to_string(error->code) + ")" : "(null)";
}

}  // namespace kv

#endif  // PLATFORM_DESCRIBE_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// JSON for scripts: one object a line. docs/json.md tells of every field.
#ifndef APPS_KVFOB_BASE_JSON_H
#define APPS_KVFOB_BASE_JSON_H

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

namespace kvfob {

/// Its members stay in the order in which they were added.
using Json = nlohmann::ordered_json;

/// The object without a line end. What is not UTF-8 becomes U+FFFD: it may come from the air.
std::string jsonLine(const Json& object);

/// Seconds with three decimals.
double jsonSeconds(std::chrono::nanoseconds time);

/// The value, or null for an absent one.
template <typename Optional>
Json orNull(const Optional& value) {
  return value ? Json(*value) : Json();
}

}  // namespace kvfob

#endif  // APPS_KVFOB_BASE_JSON_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/base/json.h"

#include <cmath>

namespace kvfob {

std::string jsonLine(const Json& object) {
  return object.dump(-1, ' ', /*ensure_ascii=*/false, Json::error_handler_t::replace);
}

double jsonSeconds(std::chrono::nanoseconds time) {
  return std::round(std::chrono::duration<double, std::milli>(time).count()) / 1e3;
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/commands/config.h"

#include <algorithm>
#include <chrono>
#include <string>

#include "apps/kvfob/base/result.h"

namespace kvfob {
namespace {

std::string column(std::string text, std::size_t width) {
  text.resize(std::max(text.size() + 2, width), ' ');
  return text;
}

}  // namespace

Outcome runConfig(const Options& options, Console& console) {
  for (const auto& [name, value, from] : options.settings) {
    if (options.json) {
      console.line(jsonLine({{"event", "setting"},
                             {"name", name},
                             {"value", value.empty() ? Json() : Json(value)},
                             {"from", from}}));
    } else {
      console.line(column(name, 9) + column(value.empty() ? "-" : value, 19) + from);
    }
  }
  if (options.json) {
    console.line(jsonLine(resultOf("config", Json::object(), Outcome(), {})));
  }
  return {};
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/commands/config.h"

#include <algorithm>
#include <string>

#include "apps/kvfob/commands/reported.h"

namespace kvfob {
namespace {

std::string column(std::string text, std::size_t width) {
  text.resize(std::max(text.size() + 2, width), ' ');
  return text;
}

}  // namespace

Outcome runConfig(const Options& options, Console& console) {
  const auto show = [&] {
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
    return Outcome();
  };
  return reported("config", Json::object(), options, console, show);
}

}  // namespace kvfob

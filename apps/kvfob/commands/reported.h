// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_COMMANDS_REPORTED_H
#define APPS_KVFOB_COMMANDS_REPORTED_H

#include <chrono>
#include <functional>
#include <string_view>

#include "apps/kvfob/base/result.h"
#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/terminal/console.h"

namespace kvfob {

/// Runs a command and, where JSON is asked for, prints how it ended; `facts` are what it alone has
/// to tell.
inline Outcome reported(std::string_view command, const Json& facts, const Options& options,
                        Console& console, const std::function<Outcome()>& run) {
  const auto start = std::chrono::steady_clock::now();
  auto outcome = run();
  if (options.json) {
    const auto taken = std::chrono::steady_clock::now() - start;
    console.line(jsonLine(resultOf(command, facts, outcome, taken)));
  }
  return outcome;
}

}  // namespace kvfob

#endif  // APPS_KVFOB_COMMANDS_REPORTED_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The last line of a command that speaks JSON.
#ifndef APPS_KVFOB_BASE_RESULT_H
#define APPS_KVFOB_BASE_RESULT_H

#include <chrono>
#include <string_view>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/base/json.h"

namespace kvfob {

/// How a command ended; `facts` are what it alone has to tell.
Json resultOf(std::string_view command, const Json& facts, const Outcome& outcome,
              std::chrono::nanoseconds taken);

}  // namespace kvfob

#endif  // APPS_KVFOB_BASE_RESULT_H

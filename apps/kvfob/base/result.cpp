// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/base/result.h"

namespace kvfob {

Json resultOf(std::string_view command, const Json& facts, const Outcome& outcome,
              std::chrono::nanoseconds taken) {
  Json result{{"event", "result"}, {"command", command}};
  result.update(facts);
  result["ok"] = outcome.code == kDone;
  result["seconds"] = jsonSeconds(taken);
  result["error"] = nullptr;
  if (outcome.code != kDone) {
    result["error"] = Json{{"code", codeWord(outcome)}, {"message", outcome.message}};
  }
  return result;
}

}  // namespace kvfob

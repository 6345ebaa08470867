// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/base/exit_code.h"

namespace kvfob {

std::string_view codeWord(const Outcome& outcome) {
  if (!outcome.word.empty()) return outcome.word;
  switch (outcome.code) {
    case kDone:
      return "done";
    case kInternal:
      return "internal";
    case kUsage:
      return "usage";
    case kNoAdapter:
      return "no-bluetooth";
    case kNotFound:
      return "not-heard";
    case kRefused:
      return "refused";
    case kTimedOut:
      return "timed-out";
    case kStateFile:
      return "state-file";
    case kNotRemembered:
      return "not-remembered";
    case kUnlisted:
      return "unlisted";
    case kBadInput:
      return "bad-input";
    default:
      return "interrupted";
  }
}

}  // namespace kvfob

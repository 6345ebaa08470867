// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_BASE_EXIT_CODE_H
#define APPS_KVFOB_BASE_EXIT_CODE_H

#include <string>

namespace kvfob {

/// The program's exit statuses; a signal ends it with 128 plus its number.
enum ExitCode : int {
  kDone = 0,
  kInternal = 1,
  kUsage = 2,
  kNoAdapter = 3,
  kNotFound = 4,
  kRefused = 5,
  kTimedOut = 6,
  kSignal = 128,
};

/// How a run ends: the status, and for a failure one line that says what to do about it.
struct Outcome {
  int code = kDone;
  std::string message = {};
};

}  // namespace kvfob

#endif  // APPS_KVFOB_BASE_EXIT_CODE_H

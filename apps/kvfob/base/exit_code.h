// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// How the program ends.
#ifndef APPS_KVFOB_BASE_EXIT_CODE_H
#define APPS_KVFOB_BASE_EXIT_CODE_H

#include <string>
#include <string_view>
#include <utility>

namespace kvfob {

/// The program's exit statuses, which scripts rely on; a signal ends it with 128 plus its number.
enum ExitCode : int {
  kDone = 0,
  kInternal = 1,  ///< Also output that cannot be written.
  kUsage = 2,     ///< The command line, and nothing else.
  kNoAdapter = 3,
  kNotFound = 4,
  kRefused = 5,
  kTimedOut = 6,
  kStateFile = 7,      ///< What the program remembers cannot be read or written; nothing was done.
  kNotRemembered = 8,  ///< Done on the tag, but not written down.
  kUnlisted = 9,       ///< A tag that was not bound from here.
  kBadInput = 10,      ///< A file that was given, or a setting, is wrong or cannot be read.
  kSignal = 128,
};

/// How a run ends: the status, and for a failure one line that says what to do about it.
struct Outcome {
  int code = kDone;
  std::string message = {};
  /// What a script can tell failures of one status apart by; empty for that of the status.
  std::string word = {};
};

/// The code word of an outcome: its own, or else that of its status.
std::string_view codeWord(const Outcome& outcome);

}  // namespace kvfob

#endif  // APPS_KVFOB_BASE_EXIT_CODE_H

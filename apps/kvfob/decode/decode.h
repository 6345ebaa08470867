// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The `decode` command: what tags and applications said to each other.
#ifndef APPS_KVFOB_DECODE_DECODE_H
#define APPS_KVFOB_DECODE_DECODE_H

#include <string>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/decode/input.h"
#include "apps/kvfob/terminal/console.h"
#include "apps/kvfob/terminal/signals.h"

namespace kvfob {

/// How what is found is printed.
struct DecodeStyle {
  bool showSecrets = false;
  bool json = false;
};

/// What was read, and what was found in it.
struct DecodeCounts {
  std::uint64_t packets = 0;  ///< Of a capture.
  std::uint64_t found = 0;
};

/// Reads a btsnoop capture, or advertisement frames as lines of hexadecimal text, and prints what
/// it understands as it goes along. Text lines may hold spaces and colons; empty ones and those
/// that begin with '#' are passed over. Input of neither kind is bad input; what was understood
/// before a fault in it has been printed by then. Ends early when the output is lost.
Outcome decodeInput(Input& input, const DecodeStyle& style, Console& console, DecodeCounts& counts);

/// The command: the same for a file, or ("-") standard input, until a signal comes.
Outcome decode(const Options& options, const SignalFd& signals, Console& console);

}  // namespace kvfob

#endif  // APPS_KVFOB_DECODE_DECODE_H

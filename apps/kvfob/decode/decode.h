// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The `decode` command: what tags and applications said to each other.
#ifndef APPS_KVFOB_DECODE_DECODE_H
#define APPS_KVFOB_DECODE_DECODE_H

#include <istream>
#include <string>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/terminal/console.h"

namespace kvfob {

/// Reads a btsnoop capture, or advertisement frames as lines of hexadecimal text, from a file or
/// ("-") from `in`, and prints what it understands. Text lines may hold spaces and colons; empty
/// ones and those that begin with '#' are passed over. A file that cannot be read, and input of
/// neither kind, is an error of use; what was understood before a fault in a capture has been
/// printed by then.
Outcome decode(const std::string& file, std::istream& in, bool showSecrets, Console& console);

}  // namespace kvfob

#endif  // APPS_KVFOB_DECODE_DECODE_H

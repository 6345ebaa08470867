// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The commands on what is remembered.
#ifndef APPS_KVFOB_COMMANDS_BOOK_COMMANDS_H
#define APPS_KVFOB_COMMANDS_BOOK_COMMANDS_H

#include "apps/kvfob/book/book.h"
#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/terminal/console.h"

namespace kvfob {

/// `list`, `rename` and `forget`.
Outcome runOnBook(const Options& options, Console& console);

}  // namespace kvfob

#endif  // APPS_KVFOB_COMMANDS_BOOK_COMMANDS_H

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

/// Writes down that the tag with this address was bound.
Outcome rememberBound(const Options& options, const std::string& address, const Secret& password);

/// Drops the password of a tag that was unbound; its name stays.
Outcome rememberUnbound(const Options& options, const std::string& address);

/// What to say of a name that another tag has.
Outcome nameTaken(const std::string& name, const BookEntry& by);

/// What to say of a tag that is neither an address nor a name.
Outcome unknownTag(const Options& options);

}  // namespace kvfob

#endif  // APPS_KVFOB_COMMANDS_BOOK_COMMANDS_H

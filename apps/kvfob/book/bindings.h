// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What is written down when tags are bound and unbound.
#ifndef APPS_KVFOB_BOOK_BINDINGS_H
#define APPS_KVFOB_BOOK_BINDINGS_H

#include <string>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/base/secret.h"
#include "apps/kvfob/book/book.h"

namespace kvfob {

/// Writes down that a tag is about to be bound, before it is: so that a full disk or a missing
/// folder keeps the tag from being bound with a password that is then lost. What was known of the
/// tag stays beside it.
///
/// @param name      What it will be called; empty to keep what it is called.
/// @param password  Kept if `save`, or if one is kept for this tag already.
Outcome beginBinding(RadioKind radio, const std::string& address, const std::string& name,
                     const Secret& password, bool save);

/// Writes down that it was bound; or that it was not, so that what was known before holds again.
Outcome endBinding(RadioKind radio, const std::string& address, bool bound);

/// Drops the password of a tag that was unbound; its name stays.
Outcome rememberUnbound(RadioKind radio, const std::string& address);

/// What to say of a name that another tag has.
Outcome nameTaken(const std::string& name, const BookEntry& by);

}  // namespace kvfob

#endif  // APPS_KVFOB_BOOK_BINDINGS_H

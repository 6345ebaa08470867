// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The commands that act on tags, on one after the other.
#ifndef APPS_KVFOB_COMMANDS_ON_TAGS_H
#define APPS_KVFOB_COMMANDS_ON_TAGS_H

#include "apps/kvfob/book/book.h"
#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/radio/links.h"
#include "apps/kvfob/terminal/console.h"
#include "apps/kvfob/terminal/signals.h"

namespace kvfob {

/// Carries out the command on the tags that it names. Nothing binds a tag but `bind`: the others
/// refuse a tag that the book does not hold as bound, before anything goes over the air. With
/// several tags each is tried, and the outcome is that of the first that failed.
Outcome runOnTags(const Options& options, const Book& book, const SignalFd& signals,
                  Console& console);

/// The same with links that may be up already.
Outcome runOnTags(const Options& options, const Book& book, Links& links);

}  // namespace kvfob

#endif  // APPS_KVFOB_COMMANDS_ON_TAGS_H

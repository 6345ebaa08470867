// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Commands typed one after the other, over links that stay up between them.
#ifndef APPS_KVFOB_SHELL_SHELL_H
#define APPS_KVFOB_SHELL_SHELL_H

#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/terminal/console.h"
#include "apps/kvfob/terminal/signals.h"

namespace kvfob {

/// Reads commands from standard input until "quit" or its end: with editing, history and completion
/// on a terminal. Ends with success there; else with the status of the first command that failed,
/// after which the rest is not done.
Outcome runShell(const Options& options, const SignalFd& signals, Console& console);

}  // namespace kvfob

#endif  // APPS_KVFOB_SHELL_SHELL_H

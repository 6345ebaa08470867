// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_COMMANDS_RUN_H
#define APPS_KVFOB_COMMANDS_RUN_H

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/radio/links.h"
#include "apps/kvfob/terminal/console.h"
#include "apps/kvfob/terminal/signals.h"

namespace kvfob {

/// Carries out a command; the shell is none of these.
Outcome runCommand(const Options& options, const SignalFd& signals, Console& console);

/// Whether the command is a scan, or one on tags.
bool usesRadio(Command command);

/// Carries out one of these on a radio that is in use already.
Outcome runOnRadio(const Options& options, const Radio& radio, Links& links);

}  // namespace kvfob

#endif  // APPS_KVFOB_COMMANDS_RUN_H

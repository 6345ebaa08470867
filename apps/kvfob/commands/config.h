// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_COMMANDS_CONFIG_H
#define APPS_KVFOB_COMMANDS_CONFIG_H

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/terminal/console.h"

namespace kvfob {

/// Prints the settings in force, a line each, and where they come from.
Outcome runConfig(const Options& options, Console& console);

}  // namespace kvfob

#endif  // APPS_KVFOB_COMMANDS_CONFIG_H

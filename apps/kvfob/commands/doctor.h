// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Tells why Bluetooth does not work here, and what to do about it.
#ifndef APPS_KVFOB_COMMANDS_DOCTOR_H
#define APPS_KVFOB_COMMANDS_DOCTOR_H

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/terminal/console.h"
#include "apps/kvfob/terminal/signals.h"

namespace kvfob {

/// Prints what was found, a line each. Ends with kNoAdapter if Bluetooth cannot be used.
Outcome runDoctor(const Options& options, const SignalFd& signals, Console& console);

}  // namespace kvfob

#endif  // APPS_KVFOB_COMMANDS_DOCTOR_H

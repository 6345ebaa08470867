// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Getting the bind password without leaving it anywhere.
#ifndef APPS_KVFOB_TERMINAL_PASSWORD_H
#define APPS_KVFOB_TERMINAL_PASSWORD_H

#include <optional>
#include <string>
#include <variant>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/base/secret.h"

namespace kvfob {

/// The password, or why there is none.
using PasswordResult = std::variant<Secret, Outcome>;

/// Reads a password from a file; "-" is standard input. One line end at its end is dropped. A
/// signal that asks the program to end gives the outcome 128 plus its number.
PasswordResult readPassword(const std::string& file);

/// What is to be said of a password file that others than its owner can read; nothing of any other.
std::optional<std::string> passwordFileWarning(const std::string& file);

/// Asks for a password on the controlling terminal, without echo: `prompt`, and unless `again` is
/// empty that, too, until both answers are the same. The terminal is as before when this returns,
/// also on a signal that asks the program to end, and while the process is stopped; then it asks
/// anew.
PasswordResult askPassword(const std::string& prompt, const std::string& again = {});

/// Asks on the controlling terminal whether to go on. Success for "y" or "yes"; wrong usage where
/// there is no terminal, as then --yes has to be given; else interrupted.
Outcome confirm(const std::string& question);

}  // namespace kvfob

#endif  // APPS_KVFOB_TERMINAL_PASSWORD_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Getting the bind password without leaving it anywhere.
#ifndef APPS_KVFOB_TERMINAL_PASSWORD_H
#define APPS_KVFOB_TERMINAL_PASSWORD_H

#include <string>
#include <string_view>
#include <variant>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/base/secret.h"

namespace kvfob {

/// The password, or why there is none.
using PasswordResult = std::variant<Secret, Outcome>;

/// Reads a password: from a file ("-" is standard input), where one line end at its end is dropped;
/// or, when `file` is empty, from the controlling terminal, which shows `prompt` and no echo. The
/// terminal is as before when this returns, also when a signal that asks the program to end arrives
/// meanwhile: that gives the outcome 128 plus its number.
PasswordResult readPassword(const std::string& file, std::string_view prompt);

}  // namespace kvfob

#endif  // APPS_KVFOB_TERMINAL_PASSWORD_H

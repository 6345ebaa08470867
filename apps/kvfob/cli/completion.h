// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Completions for shells, made from the command line's own description.
#ifndef APPS_KVFOB_CLI_COMPLETION_H
#define APPS_KVFOB_CLI_COMPLETION_H

#include <CLI/App.hpp>
#include <string>

#include "apps/kvfob/cli/options.h"

namespace kvfob {

/// A script for the shell, which completes commands, options, their words, files, and tags by what
/// `kvfob list --names` prints.
std::string completionScript(const CLI::App& app, ShellKind shell);

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_COMPLETION_H

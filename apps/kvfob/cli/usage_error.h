// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What is wrong with a command line, in words that help.
#ifndef APPS_KVFOB_CLI_USAGE_ERROR_H
#define APPS_KVFOB_CLI_USAGE_ERROR_H

#include <CLI/App.hpp>
#include <optional>
#include <string>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/cli/options.h"

namespace kvfob {

/// The command that is on the command line; null where there is none.
const CLI::App* commandGiven(const CLI::App& app);

/// Whether an option, without its hyphens, stands before the command or after it.
bool optionGiven(const CLI::App& app, const std::string& name);

/// For a command line that could not be parsed.
Outcome usageError(const CLI::App& app, const CLI::ParseError& error);

/// For a command of this name that does not exist.
Outcome unknownCommand(const CLI::App& app, const std::string& name);

/// For one that could be parsed, and settled: an option that would do nothing, or one that is
/// missing. Absent when all is well.
std::optional<Outcome> misfit(const CLI::App& app, const Options& options);

/// The radio of a command that has no choice; absent for the others.
std::optional<RadioKind> fixedRadio(Command command);

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_USAGE_ERROR_H

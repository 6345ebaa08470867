// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What may stand on the command line: parsing, help, completions and the manual come from this.
#ifndef APPS_KVFOB_CLI_COMMAND_LINE_H
#define APPS_KVFOB_CLI_COMMAND_LINE_H

#include <CLI/App.hpp>
#include <memory>
#include <string>

#include "apps/kvfob/cli/options.h"

namespace kvfob {

/// A description of the command line; parsing with it fills `options`, which must outlive it.
std::unique_ptr<CLI::App> makeCommandLine(Options& options, std::string& configFile);

/// The program's commands, in the order of the help.
std::vector<const CLI::App*> commandsOf(const CLI::App& app);

/// Whether an option is there for its message only, and not in the help.
bool isHidden(const CLI::Option& option);

/// "kvfob 1.2.3".
std::string versionLine();

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_COMMAND_LINE_H

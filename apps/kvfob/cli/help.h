// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The help, made from the command line's own description.
#ifndef APPS_KVFOB_CLI_HELP_H
#define APPS_KVFOB_CLI_HELP_H

#include <CLI/App.hpp>
#include <string>
#include <string_view>

namespace kvfob {

/// The help of the program, or of one of its commands.
std::string helpText(const CLI::App& app);

/// What stands below the list of commands: a line that ends with a colon begins a section.
std::string_view helpFooter();

/// Lines to type, each of a command, two spaces before them.
std::string_view examplesOf(std::string_view command);

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_HELP_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What may stand on the command line. Help, completions and the manual all come from it.
#ifndef APPS_KVFOB_CLI_COMMAND_LINE_H
#define APPS_KVFOB_CLI_COMMAND_LINE_H

#include <CLI/App.hpp>
#include <memory>

#include "apps/kvfob/cli/options.h"

namespace kvfob {

/// A parser that stores into `options`, which must outlive it. The choices of an option are in its
/// type name, with bars between them; "FILE" is a file, and a positional "TAG" a tag.
std::unique_ptr<CLI::App> makeCommandLine(Options& options);

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_COMMAND_LINE_H

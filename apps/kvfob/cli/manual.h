// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The manual page, made from the same text as the help.
#ifndef APPS_KVFOB_CLI_MANUAL_H
#define APPS_KVFOB_CLI_MANUAL_H

#include <CLI/App.hpp>
#include <string>

namespace kvfob {

/// The page in the language of man(7).
std::string manualPage(const CLI::App& app);

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_MANUAL_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The configuration file: settings, one a line, in the plain part of TOML.
#ifndef APPS_KVFOB_CLI_CONFIG_FILE_H
#define APPS_KVFOB_CLI_CONFIG_FILE_H

#include <string>
#include <variant>
#include <vector>

#include "apps/kvfob/base/exit_code.h"

namespace kvfob {

/// A line that sets something.
struct ConfigLine {
  std::string file;
  std::string name;
  std::string value;
};

/// The lines of the file, all of which are settings with a value that makes sense; or else what is
/// wrong, with the line. An empty path stands for $XDG_CONFIG_HOME/kvfob/config.toml, by default
/// ~/.config/kvfob/config.toml, which need not be there.
std::variant<std::vector<ConfigLine>, Outcome> readConfig(const std::string& path);

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_CONFIG_FILE_H

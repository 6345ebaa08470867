// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What may be set once and for all: by the environment, or by a file. An option beats the
/// environment, and that beats the file.
#ifndef APPS_KVFOB_CLI_SETTINGS_H
#define APPS_KVFOB_CLI_SETTINGS_H

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/cli/options.h"

namespace kvfob {

struct Setting {
  std::string name;      ///< In the file; with two hyphens it is the option.
  std::string variable;  ///< In the environment.
  std::string type;      ///< What its value is, in the help.
  std::string help;
  std::string group;  ///< Its heading in the help; empty for the plain options.
  /// Takes a value, or tells why not.
  std::string (*take)(const std::string& text, Options& options);
  /// The value in force; empty for none.
  std::string (*show)(const Options& options);
};

std::span<const Setting> settings();

/// The one with this name, which there must be.
const Setting& settingOf(std::string_view name);

/// How the settings of a run are to be found.
struct SettingsWanted {
  std::string file;  ///< Which must be there; empty for the user's own, which need not.
  std::function<bool(const std::string& name)> given;  ///< Whether it stands on the command line.
  std::function<bool(const std::string& name)> acts;   ///< Whether the command heeds it.
};

/// Completes the options by what environment and file say, and notes where each setting comes from.
/// Returns what is wrong with them.
std::optional<Outcome> settle(const SettingsWanted& wanted, Options& options);

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_SETTINGS_H

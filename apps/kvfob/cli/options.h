// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The command line.
#ifndef APPS_KVFOB_CLI_OPTIONS_H
#define APPS_KVFOB_CLI_OPTIONS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "apps/kvfob/base/exit_code.h"

namespace kvfob {

enum class Command {
  Demo,
  Scan,
  Bind,
  Ring,
  Silence,
  Alert,
  Delay,
  Distance,
  Unbind,
  Watch,
  Tag,
  Decode,
  List,
  Rename,
  Forget,
  Doctor,
  Config,
  Help,
  Completion,
  Manual
};
enum class RadioKind { Sim, BlueZ };
enum class ColorMode { Automatic, Always, Never };
enum class LogLevel { Off, Radio, All };
enum class Shell { Bash, Zsh, Fish };
enum class SortBy { Address, Rssi, Battery, Name, Heard };

/// What a setting is, and where that comes from: "default", "file:" and its path, "environment:"
/// and the variable, or "option".
struct SettingInForce {
  std::string name;
  std::string value;  ///< Empty for none.
  std::string from;
};

struct Options {
  Command command = Command::Demo;
  RadioKind radio = RadioKind::BlueZ;
  ColorMode color = ColorMode::Automatic;
  std::string adapter = {};  ///< As KVBlueZOptions takes it.
  std::chrono::milliseconds timeout{30'000};
  LogLevel log = LogLevel::Off;
  bool radioGiven = false;  ///< On the command line.
  std::uint64_t seed = 1;   ///< Of the simulated radio.
  std::vector<SettingInForce> settings = {};

  std::string tag = {};                                    ///< As the user wrote it.
  std::optional<std::chrono::milliseconds> duration = {};  ///< Absent: until a signal.
  bool json = false;
  SortBy sort = SortBy::Rssi;  ///< Of `scan`.
  bool instant = false;        ///< Of `demo`: with a virtual clock.
  bool on = false;             ///< Of `alert`.
  std::int64_t delay = 0;      ///< Of `delay`.
  std::uint64_t level = 0;     ///< Of `distance`, a KVDistance.
  std::string passwordFile = {};

  // Of `bind`, `rename` and `list`.
  std::string name = {};
  bool savePassword = false;
  bool names = false;

  Shell shell = Shell::Bash;  ///< Of `completion`.
  std::string topic = {};     ///< Of `help`: a command, or empty.

  // Of `decode`.
  std::string file = {};
  bool showSecrets = false;

  // Of `tag`.
  std::string address = {};  ///< Empty: the adapter's own.
  int model = 1;
  int battery = 100;
};

/// The options, or how the program ends without having done anything. What is asked for on standard
/// output, such as help, is put into `printed`, and is a success once it has been written.
std::variant<Options, Outcome> parseOptions(int argc, const char* const* argv,
                                            std::string& printed);

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_OPTIONS_H

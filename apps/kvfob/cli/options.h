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
#include "apps/kvfob/base/radio_kind.h"

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
  Shell,
  Config,
  Help,
  Completion,
  Manual
};
enum class ColorMode { Automatic, Always, Never };
enum class LogLevel { Off, Radio, All };
enum class ShellKind { Bash, Zsh, Fish };
enum class SortBy { Address, Rssi, Battery, Name, Heard };

/// What a setting is, and where that comes from: "default", "file:" and its path, "environment:"
/// and the variable, or "option".
struct SettingInForce {
  std::string name;
  std::string value;  ///< Empty for none.
  std::string from;
};

// In an order that leaves few gaps.
struct Options {
  Command command = Command::Demo;
  RadioKind radio = RadioKind::BlueZ;
  ColorMode color = ColorMode::Automatic;
  LogLevel log = LogLevel::Off;
  std::string word = {};     ///< The command's.
  std::string adapter = {};  ///< As KVBlueZOptions takes it.
  std::chrono::milliseconds timeout{30'000};
  std::vector<SettingInForce> settings = {};
  std::uint64_t seed = 1;   ///< Of the simulated radio.
  std::size_t simTags = 0;  ///< Of `scan`: so many on the simulated radio; 0 for its usual ones.

  std::vector<std::string> tags = {};  ///< As the user wrote them.
  std::string tag = {};                ///< The address of the one that is worked on.
  std::string passwordFile = {};
  std::optional<std::chrono::milliseconds> duration = {};  ///< Absent: until a signal.
  std::int64_t delay = 0;                                  ///< Of `delay`.
  std::uint64_t level = 0;                                 ///< Of `distance`, a KVDistance.
  std::string name = {};              ///< Of `bind` and `rename`: the user's for the tag.
  std::string file = {};              ///< Of `decode`.
  std::string topic = {};             ///< Of `help`: a command, or empty.
  std::string address = {};           ///< Of `tag`; empty: the adapter's own.
  int model = 1;                      ///< Of `tag`.
  int battery = 100;                  ///< Of `tag`.
  SortBy sort = SortBy::Rssi;         ///< Of `scan`.
  ShellKind shell = ShellKind::Bash;  ///< Of `completion`.

  bool radioGiven = false;  ///< On the command line.
  bool json = false;
  bool all = false;           ///< All tags that are bound.
  bool unlisted = false;      ///< Also such as the book does not hold.
  bool on = false;            ///< Of `alert`.
  bool savePassword = false;  ///< Of `bind`.
  bool follow = false;        ///< Of `scan --json`: without end.
  bool names = false;         ///< Of `list`.
  bool sure = false;          ///< Of `forget`: nobody needs to be asked.
  bool instant = false;       ///< Of `demo`: with a virtual clock.
  bool showSecrets = false;   ///< Of `decode`.
};

/// The options, or how the program ends without having done anything. What is asked for on standard
/// output, such as help, is put into `printed`, and is a success once it has been written.
std::variant<Options, Outcome> parseOptions(int argc, const char* const* argv,
                                            std::string& printed);

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_OPTIONS_H

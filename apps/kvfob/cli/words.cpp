// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/words.h"

#include "KVFobLink/KVTrackerTypes.h"

namespace kvfob {

const Words<RadioKind> kRadios{{"bluez", RadioKind::BlueZ}, {"sim", RadioKind::Sim}};
const Words<ColorMode> kColors{
    {"auto", ColorMode::Automatic}, {"always", ColorMode::Always}, {"never", ColorMode::Never}};
const Words<LogLevel> kLogLevels{
    {"off", LogLevel::Off}, {"radio", LogLevel::Radio}, {"all", LogLevel::All}};
const Words<SortBy> kOrders{{"rssi", SortBy::Rssi},
                            {"battery", SortBy::Battery},
                            {"name", SortBy::Name},
                            {"heard", SortBy::Heard},
                            {"address", SortBy::Address}};
const Words<bool> kSwitch{{"on", true}, {"off", false}};
const Words<std::uint64_t> kLevels{
    {"far", KVDistanceFar}, {"middle", KVDistanceMiddle}, {"near", KVDistanceNear}};
const Words<ShellKind> kShells{
    {"bash", ShellKind::Bash}, {"zsh", ShellKind::Zsh}, {"fish", ShellKind::Fish}};

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Lines that more than one operation logs.
#ifndef MANAGER_MESSAGES_H
#define MANAGER_MESSAGES_H

#include <string_view>

namespace kv {

inline constexpr std::string_view kNoMacAddress =
    "Error: the given tracker doesn't have a mac address.";
inline constexpr std::string_view kNoPeripheral =
    "Error: the given tracker didn't have a peripheral.";
inline constexpr std::string_view kConnectionInProgress = "The tracker is in connecting progress.";

}  // namespace kv

#endif  // MANAGER_MESSAGES_H

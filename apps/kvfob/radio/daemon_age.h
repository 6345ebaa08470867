// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// How long the Bluetooth service has been running.
#ifndef APPS_KVFOB_RADIO_DAEMON_AGE_H
#define APPS_KVFOB_RADIO_DAEMON_AGE_H

#include <chrono>
#include <optional>
#include <string>

namespace kvfob {

/// The age of the youngest process that is called bluetoothd; absent when there is none, or none
/// that is seen from here, as in a container.
///
/// @param proc  Where the kernel tells of processes.
std::optional<std::chrono::milliseconds> daemonAge(const std::string& proc = "/proc");

}  // namespace kvfob

#endif  // APPS_KVFOB_RADIO_DAEMON_AGE_H

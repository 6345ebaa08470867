// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The BlueZ central.
#ifndef PLATFORM_LINUX_BLUEZ_RADIO_H
#define PLATFORM_LINUX_BLUEZ_RADIO_H

#include <memory>

#include "KVFobLink/KVLinuxPlatform.h"
#include "KVFobLink/KVPlatform.h"
#include "platform/linux/bluez/hci_sockets.h"
#include "platform/linux/bluez/timing.h"

namespace kv {

/// Makes centrals that need a `KVLinuxEventQueue`; on any other queue a central is Unsupported for
/// good and says so in the log. Nothing is opened before a central is made.
std::shared_ptr<KVRadio> makeBlueZRadio(
    KVBlueZOptions options, std::shared_ptr<KVLog> log, BlueZTiming timing = {},
    std::shared_ptr<HciSockets> sockets = std::make_shared<HciSockets>());

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_RADIO_H

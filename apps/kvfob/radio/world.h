// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What is on the simulated radio.
#ifndef APPS_KVFOB_RADIO_WORLD_H
#define APPS_KVFOB_RADIO_WORLD_H

#include <chrono>
#include <cstddef>

#include "KVFobSimulator/SimulatedRadio.h"
#include "apps/kvfob/cli/options.h"

namespace kvfob {

/// The tag that is bound already, and with what.
inline constexpr const char* kBoundTag = "0a1b2c3d4e5f";
inline constexpr const char* kBoundTagPassword = "sesame";

/// How often each of so many tags advertises: seldom in a crowd, as they do in earnest.
std::chrono::milliseconds advertisingInterval(std::size_t tags);

/// Puts the tags on the air: the three that the help tells of, or as many as were asked for. While
/// they are scanned or watched, they are carried about, and of a crowd every fourth goes away and
/// comes back.
void fillWorld(kvsim::SimulatedRadio& radio, const Options& options);

}  // namespace kvfob

#endif  // APPS_KVFOB_RADIO_WORLD_H

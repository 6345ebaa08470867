// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_BASE_RADIO_KIND_H
#define APPS_KVFOB_BASE_RADIO_KIND_H

#include <string_view>

namespace kvfob {

/// Whose tags are meant: those of a simulated radio, or those of the machine's own.
enum class RadioKind { Sim, BlueZ };

/// "bluez" or "sim".
constexpr std::string_view radioName(RadioKind radio) {
  return radio == RadioKind::Sim ? "sim" : "bluez";
}

}  // namespace kvfob

#endif  // APPS_KVFOB_BASE_RADIO_KIND_H

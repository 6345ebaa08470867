// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Properties of exported objects that never change.
#ifndef SIMULATOR_AIR_PROPERTIES_H
#define SIMULATOR_AIR_PROPERTIES_H

#include <cstdint>
#include <string>
#include <vector>

#include "platform/linux/bus/object.h"

namespace kvsim {

kv::BusInterface::Property textProperty(const std::string& name, const std::string& value);
kv::BusInterface::Property pathProperty(const std::string& name, const std::string& path);
kv::BusInterface::Property listProperty(const std::string& name, std::vector<std::string> texts);
kv::BusInterface::Property numberProperty(const std::string& name, std::uint32_t value);
/// A flag that is set.
kv::BusInterface::Property setProperty(const std::string& name);

}  // namespace kvsim

#endif  // SIMULATOR_AIR_PROPERTIES_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <array>

#include "simulator/tag/device.h"

namespace kvsim {
namespace {

KVUUID uuid(std::string_view text) { return KVUUID::fromString(text).value_or(KVUUID(0)); }

struct Information {
  std::uint16_t uuid;  // assigned by the Bluetooth SIG
  std::string_view text;
};
constexpr std::array<Information, 3> kInformation = {
    Information{0x2A24, "Virtual tag"},     // model number
    Information{0x2A26, "1.0"},             // firmware revision
    Information{0x2A29, "KVFobSimulator"},  // manufacturer
};

constexpr unsigned kMostCopies = kDistanceHandle - kCommandHandle;

}  // namespace

std::vector<GattService> layoutOf(const TagBehaviour& behaviour) {
  std::vector<GattService> services;
  if (behaviour.commandService) {
    services.push_back({uuid("7F280001-8204-F393-E0A9-E50E24DCCA9E"), {}});
    for (unsigned i = 0; i < std::min(behaviour.commandCharacteristics, kMostCopies); ++i) {
      services.back().characteristics.push_back(
          {.handle = static_cast<GattHandle>(kCommandHandle + i),
           .uuid = uuid("7F280002-8204-F393-E0A9-E50E24DCCA9E"),
           .readable = true,
           .writable = true,
           .notifies = true});
    }
  }
  if (behaviour.secondService) {
    services.push_back({uuid("A3C87500-8ED3-4BDF-8A39-A01BEBEDE295"), {}});
    if (behaviour.distanceCharacteristic) {
      services.back().characteristics.push_back(
          {.handle = kDistanceHandle,
           .uuid = uuid("A3C87504-8ED3-4BDF-8A39-A01BEBEDE295"),
           .writable = true});
    }
  }
  if (behaviour.informationService) {
    services.push_back({KVUUID(0x180A), {}});
    for (std::size_t i = 0; i < kInformation.size(); ++i) {
      services.back().characteristics.push_back(
          {.handle = static_cast<GattHandle>(kInformationHandle + i),
           .uuid = KVUUID(kInformation.at(i).uuid),
           .readable = true});
    }
  }
  return services;
}

std::optional<KVData> informationAt(GattHandle handle) {
  if (handle < kInformationHandle) return std::nullopt;
  const std::size_t index = handle - kInformationHandle;
  if (index >= kInformation.size()) return std::nullopt;
  const std::string_view text = kInformation.at(index).text;
  return KVData(text.begin(), text.end());
}

}  // namespace kvsim

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/tag_stream.h"

#include <cstdlib>

namespace kvfob {
namespace {

using namespace std::chrono_literals;

constexpr auto kEvery = 1s;
constexpr auto kSilence = 10s;
constexpr std::int64_t kDecibels = 3;

bool differsForGood(const TagRow& a, const TagRow& b) {
  return a.battery != b.battery || a.model != b.model || a.bound != b.bound || a.name != b.name ||
         a.tx != b.tx;
}

bool differsInSignal(const TagRow& a, const TagRow& b) {
  if (a.level != b.level || a.rssi.has_value() != b.rssi.has_value()) return true;
  return a.rssi && std::llabs(*a.rssi - *b.rssi) >= kDecibels;
}

}  // namespace

bool TagStream::news(const TagRow& row, std::chrono::milliseconds at) {
  const auto [found, first] = told_.try_emplace(row.address);
  auto& told = found->second;
  if (!first && row.lastAdvertised && told.lastAdvertised) {
    told.back = told.back || *row.lastAdvertised - *told.lastAdvertised >= kSilence;
  }
  told.lastAdvertised = row.lastAdvertised;
  const bool late = at - told.at >= kEvery;
  if (!first && !differsForGood(row, told.row) &&
      !(late && (told.back || differsInSignal(row, told.row)))) {
    return false;
  }
  told.row = row;
  told.at = at;
  told.back = false;
  return true;
}

}  // namespace kvfob

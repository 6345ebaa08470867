// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/progress.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace kvfob {
namespace {

constexpr std::chrono::milliseconds kRedraw{200};
constexpr std::size_t kBarWidth = 30;

std::string amount(std::uint64_t bytes) {
  static constexpr std::array<const char*, 5> kUnits{"bytes", "kB", "MB", "GB", "TB"};
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (value >= 1000 && unit + 1 < kUnits.size()) {
    value /= 1000;
    ++unit;
  }
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]);
  return text.data();
}

}  // namespace

std::string progressText(std::uint64_t done, std::optional<std::uint64_t> total) {
  if (!total || *total == 0) return amount(done) + " read";
  // A file may grow meanwhile.
  const auto share = std::min(1.0, static_cast<double>(done) / static_cast<double>(*total));
  const auto full = static_cast<std::size_t>(share * kBarWidth);
  std::array<char, 16> percent{};
  std::snprintf(percent.data(), percent.size(), " %3d %%", static_cast<int>(share * 100));
  return "[" + std::string(full, '#') + std::string(kBarWidth - full, '.') + "]" + percent.data() +
         " of " + amount(*total);
}

void Progress::advance(std::size_t bytes) {
  done_ += bytes;
  const auto now = Clock::now();
  if (now < next_) return;
  next_ = now + kRedraw;
  console_.status(progressText(done_, total_));
}

int Progress::restMs() const {
  if (!console_.showsStatus()) return -1;
  const auto rest = std::chrono::ceil<std::chrono::milliseconds>(next_ - Clock::now()).count();
  return static_cast<int>(std::max<std::int64_t>(rest, 0));
}

}  // namespace kvfob

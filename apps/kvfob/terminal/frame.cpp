// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/frame.h"

#include <array>
#include <cstdio>

namespace kvfob {

void drawFooter(Canvas& canvas, const std::vector<KeyHint>& hints) {
  const auto y = canvas.height() - 1;
  std::size_t x = 1;
  for (const auto& [key, action] : hints) {
    const auto end = x + columnsOf(key) + columnsOf(action) + 3;
    if (end > canvas.width()) return;
    x = canvas.put(x, y, " " + key + " ", Style::Title);
    x = canvas.put(x + 1, y, action) + 2;
  }
}

void drawRule(Canvas& canvas, std::size_t y, const std::string& title, const std::string& remark) {
  for (std::size_t x = 0; x < canvas.width(); ++x) canvas.put(x, y, "─", Style::Dim);
  canvas.put(1, y, " " + title + " ", Style::Bold);
  if (!remark.empty()) canvas.putRight(canvas.width() - 1, y, " " + remark + " ", Style::Dim);
}

std::size_t drawFact(Canvas& canvas, std::size_t x, std::size_t y, std::string_view name,
                     std::string_view value, Style style) {
  x = canvas.put(x, y, name, Style::Dim) + 1;
  return canvas.put(x, y, value, style) + 3;
}

std::string clockText(std::chrono::milliseconds elapsed) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(elapsed).count();
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%lld:%02d:%02d", static_cast<long long>(seconds / 3600),
                static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
  return text.data();
}

Style batteryStyle(std::int64_t battery) {
  constexpr std::int64_t kEmpty = 20;
  constexpr std::int64_t kLow = 40;
  if (battery < kEmpty) return Style::Bad;
  return battery < kLow ? Style::Warn : Style::Plain;
}

}  // namespace kvfob

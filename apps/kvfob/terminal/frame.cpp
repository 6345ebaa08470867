// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/frame.h"

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

Style batteryStyle(std::int64_t battery) {
  constexpr std::int64_t kEmpty = 20;
  constexpr std::int64_t kLow = 40;
  if (battery < kEmpty) return Style::Bad;
  return battery < kLow ? Style::Warn : Style::Plain;
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What the views have in common.
#ifndef APPS_KVFOB_TERMINAL_FRAME_H
#define APPS_KVFOB_TERMINAL_FRAME_H

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "apps/kvfob/terminal/canvas.h"

namespace kvfob {

struct KeyHint {
  std::string key;
  std::string action;
};

/// The last row: what the keys do, as many as there is room for.
void drawFooter(Canvas& canvas, const std::vector<KeyHint>& hints);

/// A line across, with a title in it and a remark at its end.
void drawRule(Canvas& canvas, std::size_t y, const std::string& title,
              const std::string& remark = {});

/// A fact with its name before it; the column for the next.
std::size_t drawFact(Canvas& canvas, std::size_t x, std::size_t y, std::string_view name,
                     std::string_view value, Style style = Style::Plain);

/// "0:02:05".
std::string clockText(std::chrono::milliseconds elapsed);

/// The colour of a battery value, 0 to 255.
Style batteryStyle(std::int64_t battery);

}  // namespace kvfob

#endif  // APPS_KVFOB_TERMINAL_FRAME_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The rows of tags.
#ifndef APPS_KVFOB_SCAN_SCAN_TABLE_H
#define APPS_KVFOB_SCAN_SCAN_TABLE_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "apps/kvfob/scan/tag_list.h"
#include "apps/kvfob/terminal/canvas.h"

namespace kvfob {

/// What the table shows.
struct ScanRows {
  std::vector<const HeardTag*> tags;
  std::chrono::system_clock::time_point now;
  std::size_t first = 0;  ///< The first that is shown: those before it have been scrolled away.
  std::optional<std::size_t> selected = {};
  std::optional<SortBy> order = {};  ///< Its column is marked.
};

/// Whether a tag has not been heard for so long that it may be gone.
bool isQuiet(const TagRow& row, std::chrono::system_clock::time_point now);

/// "now", "15 s" or "3 min", and "-" for never.
std::string agoText(const std::optional<std::chrono::system_clock::time_point>& then,
                    std::chrono::system_clock::time_point now);

/// Draws the heading, and as many tags below it as there are rows before `end`.
void drawRows(Canvas& canvas, std::size_t top, std::size_t end, const ScanRows& rows);

/// The table alone, with its heading, in as many lines as it needs.
std::vector<std::string> drawTable(const ScanRows& rows, Look look);

}  // namespace kvfob

#endif  // APPS_KVFOB_SCAN_SCAN_TABLE_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The screen of a scan.
#ifndef APPS_KVFOB_SCAN_SCAN_VIEW_H
#define APPS_KVFOB_SCAN_SCAN_VIEW_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "apps/kvfob/scan/scan_table.h"
#include "apps/kvfob/terminal/canvas.h"
#include "apps/kvfob/terminal/frame.h"

namespace kvfob {

enum class ScanPanel { None, Details, Help };

struct ScanView {
  ScanRows rows = {};
  std::size_t heard = 0;  ///< How many tags, shown or not.
  std::chrono::milliseconds elapsed{0};
  std::optional<std::chrono::milliseconds> left = {};  ///< Absent: until the user ends it.
  bool simulated = false;
  bool busy = false;  ///< A command is on its way.
  std::string filter = {};
  bool typingFilter = false;
  std::string note = {};  ///< The last event; empty for none.
  Style noteStyle = Style::Plain;
  ScanPanel panel = ScanPanel::None;
  bool passwordSaved = false;         ///< Of the selected tag.
  std::string question = {};          ///< What is asked for, in place of the note.
  std::vector<KeyHint> answers = {};  ///< The keys of that.
};

/// Which rows of the terminal hold what. A part that there is no room for has no rows.
struct ScanLayout {
  std::size_t top = 0;    ///< The table's heading.
  std::size_t end = 0;    ///< After the table's last row.
  std::size_t panel = 0;  ///< The panel's first row, its title.
  std::size_t panelEnd = 0;
  std::size_t note = 0;  ///< 0 for none.

  /// How many tags fit in.
  std::size_t room() const { return end > top + 1 ? end - top - 1 : 0; }
};

ScanLayout layoutOf(ScanPanel panel, const Look& look);

/// Where the table has to begin so that the selected tag is in it: as near to `first` as can be.
std::size_t scrolled(std::size_t first, std::size_t selected, std::size_t count, std::size_t room);

/// The whole terminal while the scan goes on.
std::vector<std::string> drawScan(const ScanView& view, const Look& look);

}  // namespace kvfob

#endif  // APPS_KVFOB_SCAN_SCAN_VIEW_H

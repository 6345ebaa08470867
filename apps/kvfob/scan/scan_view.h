// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The tags in range as a table.
#ifndef APPS_KVFOB_SCAN_SCAN_VIEW_H
#define APPS_KVFOB_SCAN_SCAN_VIEW_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "apps/kvfob/scan/listing.h"
#include "apps/kvfob/terminal/canvas.h"

namespace kvfob {

struct ScanView {
  std::vector<TagRow> rows;
  SortBy order = SortBy::Rssi;
  std::chrono::system_clock::time_point now;
  /// How long the scan goes on.
  std::chrono::milliseconds left{0};
  std::string note = {};  ///< The last thing that the user was told; empty for none.
};

/// The table alone, with its heading, in as many lines as it needs.
std::vector<std::string> drawTable(const ScanView& view, Look look);

/// The whole terminal while the scan goes on; one line says how many tags there is no room for.
std::vector<std::string> drawScan(const ScanView& view, const Look& look);

}  // namespace kvfob

#endif  // APPS_KVFOB_SCAN_SCAN_VIEW_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// One tag as it is watched.
#ifndef APPS_KVFOB_WATCH_WATCH_VIEW_H
#define APPS_KVFOB_WATCH_WATCH_VIEW_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "KVFobLink/KVTrackerTypes.h"
#include "apps/kvfob/terminal/canvas.h"
#include "apps/kvfob/terminal/plot.h"

namespace kvfob {

/// All that is shown; what is not known is absent.
struct WatchView {
  struct Event {
    std::string time;
    std::string text;
    Style style = Style::Plain;
  };

  std::string name;
  std::string address;
  std::chrono::milliseconds elapsed{0};
  std::uint64_t connection = KVConnectionDisconnect;
  bool linkUp = false;                             ///< Ready or not.
  std::chrono::milliseconds linkSince{0};          ///< Since when it is not connected.
  std::optional<std::chrono::milliseconds> heard;  ///< When it last was, over the air or the link.
  std::optional<std::int64_t> rssi;
  std::uint64_t level = KVDistanceFar;
  std::optional<std::int64_t> battery;
  std::optional<std::int64_t> model;
  int presses = 0;
  // As the tag was told in this run.
  std::optional<bool> bell;
  std::optional<bool> alert;
  std::optional<std::int64_t> delay;
  std::optional<std::uint64_t> distance;
  std::vector<Sample> samples;
  std::deque<Event> events;
  std::optional<std::string> typedDelay;  ///< What has been typed of a delay that is asked for.
};

/// Why it is not connected, when that takes long; else empty.
std::string waitText(const WatchView& view);

/// One line for each row of the terminal.
std::vector<std::string> drawWatch(const WatchView& view, const Look& look);

}  // namespace kvfob

#endif  // APPS_KVFOB_WATCH_WATCH_VIEW_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// How far something is that takes its time.
#ifndef APPS_KVFOB_TERMINAL_PROGRESS_H
#define APPS_KVFOB_TERMINAL_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "apps/kvfob/terminal/console.h"

namespace kvfob {

/// A bar and the percentage of so many bytes, or how many there were when the total is not known.
std::string progressText(std::uint64_t done, std::optional<std::uint64_t> total);

/// Shows on the status line how many bytes were read, once it has taken more than a second. Without
/// a terminal for it, nothing is shown.
class Progress {
 public:
  Progress(Console& console, std::optional<std::uint64_t> total)
      : console_(console), total_(total) {}
  ~Progress() { console_.status({}); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// `bytes` more were read; none of them only keeps the line up to date.
  void advance(std::size_t bytes);

  /// For how long one may wait before the line wants to be kept up to date; -1 for ever.
  int restMs() const;

 private:
  using Clock = std::chrono::steady_clock;

  Console& console_;
  const std::optional<std::uint64_t> total_;
  std::uint64_t done_ = 0;
  Clock::time_point next_ = Clock::now() + std::chrono::seconds(1);
};

}  // namespace kvfob

#endif  // APPS_KVFOB_TERMINAL_PROGRESS_H

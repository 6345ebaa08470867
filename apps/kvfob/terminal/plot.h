// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A signal's strength over time.
#ifndef APPS_KVFOB_TERMINAL_PLOT_H
#define APPS_KVFOB_TERMINAL_PLOT_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "apps/kvfob/terminal/canvas.h"

namespace kvfob {

struct Sample {
  std::chrono::milliseconds at;
  std::int64_t dbm;
};

/// The colour of a signal of this strength: that of the proximity it stands for.
Style strengthStyle(double dbm);

/// How much of a bar a signal of this strength fills, 0 to 1.
double strengthShare(double dbm);

/// The ends of the axis, in dBm.
struct Scale {
  int low;
  int high;
};

/// A scale that holds the values: whole tens, at least 30 dB.
Scale scaleFor(const std::vector<std::optional<double>>& values);

/// The strength in each of `count` columns, of which each is a second and the last is `now`.
/// Between two samples that are near each other it changes evenly; elsewhere it is not known.
std::vector<std::optional<double>> strengthBySecond(const std::vector<Sample>& samples,
                                                    std::chrono::milliseconds now,
                                                    std::size_t count);

/// Draws it with its axes into the rows from `top` on.
void drawPlot(Canvas& canvas, std::size_t top, std::size_t rows, const std::vector<Sample>& samples,
              std::chrono::milliseconds now);

}  // namespace kvfob

#endif  // APPS_KVFOB_TERMINAL_PLOT_H

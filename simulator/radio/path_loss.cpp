// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>

#include "KVFobSimulator/SimulatedRadio.h"

namespace kvsim {

PathLoss pathThrough(std::vector<PathPoint> points) {
  return [points = std::move(points)](std::chrono::nanoseconds at) {
    if (points.empty()) return 0.0;
    const auto after = std::upper_bound(
        points.begin(), points.end(), at,
        [](std::chrono::nanoseconds time, const PathPoint& point) { return time < point.at; });
    if (after == points.begin()) return after->loss;
    const auto before = std::prev(after);
    if (after == points.end()) return before->loss;
    const double share = static_cast<double>((at - before->at).count()) /
                         static_cast<double>((after->at - before->at).count());
    return before->loss + share * (after->loss - before->loss);
  };
}

}  // namespace kvsim

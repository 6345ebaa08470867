// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

namespace kvfob {
namespace {

using namespace std::chrono_literals;

// The library's own bounds of near and middle.
constexpr double kNearAbove = -65;
constexpr double kMiddleAbove = -70;

// The live link is asked every three seconds; an answer may be late.
constexpr std::chrono::milliseconds kGap = 7s;

constexpr std::size_t kAxis = 7;  // columns of "-100 ┤ "
constexpr int kTick = 10;
constexpr int kLeastSpan = 30;

constexpr std::array<std::string_view, 9> kEighths{" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};

std::optional<double> strengthAt(const std::vector<Sample>& samples, std::chrono::milliseconds at) {
  const auto after =
      std::lower_bound(samples.begin(), samples.end(), at,
                       [](const Sample& sample, auto time) { return sample.at < time; });
  if (after != samples.end() && after->at == at) return static_cast<double>(after->dbm);
  if (after == samples.begin()) return std::nullopt;
  const auto& before = *std::prev(after);
  const auto last = static_cast<double>(before.dbm);
  if (after == samples.end()) {
    // Until the next answer is due, the last one stands.
    return at - before.at < kGap ? std::optional(last) : std::nullopt;
  }
  if (after->at - before.at > kGap) return std::nullopt;
  const double share = static_cast<double>((at - before.at).count()) /
                       static_cast<double>((after->at - before.at).count());
  return last + share * (static_cast<double>(after->dbm) - last);
}

// One column of the area below the line.
void drawColumn(Canvas& canvas, std::size_t x, std::size_t top, std::size_t rows, double share,
                Style style) {
  // Something is always seen of a known value.
  const auto all = static_cast<double>(rows * 8);
  const auto eighths = static_cast<std::size_t>(std::lround(std::clamp(share * all, 1.0, all)));
  for (std::size_t row = 0; row < rows; ++row) {
    const auto below = (rows - 1 - row) * 8;
    if (eighths <= below) continue;
    canvas.put(x, top + row, kEighths[std::min<std::size_t>(8, eighths - below)], style);
  }
}

void drawTimes(Canvas& canvas, std::size_t y, std::size_t columns) {
  const auto end = kAxis + columns;
  constexpr std::size_t kEvery = 15;
  canvas.putRight(end, y, "now", Style::Dim);
  for (std::size_t ago = kEvery; ago + 6 < columns; ago += kEvery) {
    canvas.putRight(end - ago + 2, y, "-" + std::to_string(ago) + " s", Style::Dim);
  }
}

}  // namespace

Style strengthStyle(double dbm) {
  if (dbm > kNearAbove) return Style::Good;
  return dbm > kMiddleAbove ? Style::Warn : Style::Bad;
}

double strengthShare(double dbm) {
  constexpr double kNone = -100;
  constexpr double kFull = -40;
  return std::clamp((dbm - kNone) / (kFull - kNone), 0.0, 1.0);
}

Scale scaleFor(const std::vector<std::optional<double>>& values) {
  double low = kMiddleAbove;
  double high = kMiddleAbove;
  bool any = false;
  for (const auto& value : values) {
    if (!value) continue;
    low = any ? std::min(low, *value) : *value;
    high = any ? std::max(high, *value) : *value;
    any = true;
  }
  Scale scale{static_cast<int>(std::floor(low / kTick)) * kTick,
              static_cast<int>(std::ceil(high / kTick)) * kTick};
  // More room on the weaker side first, as a tag is more often carried away than nearer than near.
  for (bool below = true; scale.high - scale.low < kLeastSpan; below = !below) {
    (below ? scale.low : scale.high) += below ? -kTick : kTick;
  }
  return scale;
}

std::vector<std::optional<double>> strengthBySecond(const std::vector<Sample>& samples,
                                                    std::chrono::milliseconds now,
                                                    std::size_t count) {
  std::vector<std::optional<double>> values;
  for (std::size_t i = 0; i < count; ++i) {
    values.push_back(strengthAt(samples, now - std::chrono::seconds(count - 1 - i)));
  }
  return values;
}

void drawPlot(Canvas& canvas, std::size_t top, std::size_t rows, const std::vector<Sample>& samples,
              std::chrono::milliseconds now) {
  if (rows < 3 || canvas.width() <= kAxis + 1) return;
  const auto columns = canvas.width() - kAxis - 1;
  const auto plotRows = rows - 1;
  const auto values = strengthBySecond(samples, now, columns);
  const auto scale = scaleFor(values);
  const double span = scale.high - scale.low;
  for (std::size_t row = 0; row < plotRows; ++row) {
    canvas.put(kAxis - 2, top + row, "│", Style::Dim);
  }
  for (int tick = scale.low; tick <= scale.high; tick += kTick) {
    // A tick names the level at its cell's lower edge.
    const double height = (tick - scale.low) / span * static_cast<double>(plotRows);
    const auto up = static_cast<std::size_t>(std::lround(height));
    if (up >= plotRows) continue;
    const auto y = top + plotRows - 1 - up;
    canvas.putRight(kAxis - 3, y, std::to_string(tick), Style::Dim);
    canvas.put(kAxis - 2, y, "┤", Style::Dim);
    for (std::size_t i = 0; i < columns; i += 3) canvas.put(kAxis + i, y, "┈", Style::Dim);
  }
  for (std::size_t i = 0; i < columns; ++i) {
    if (!values[i]) continue;
    const double share = (*values[i] - scale.low) / span;
    drawColumn(canvas, kAxis + i, top, plotRows, share, strengthStyle(*values[i]));
  }
  drawTimes(canvas, top + plotRows, columns);
}

}  // namespace kvfob

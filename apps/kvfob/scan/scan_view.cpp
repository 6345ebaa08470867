// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/scan_view.h"

#include <algorithm>
#include <array>

#include "apps/kvfob/base/text.h"
#include "apps/kvfob/terminal/frame.h"
#include "apps/kvfob/terminal/plot.h"

namespace kvfob {
namespace {

enum class Column { Name, Address, Rssi, Bar, Level, Battery, Model, Heard };

struct Layout {
  Column column;
  std::string_view title;
  std::size_t width;
  bool right;
};

// Where each begins; a name takes what the others leave.
constexpr std::size_t kGap = 2;
constexpr std::size_t kNameLeast = 8;
constexpr std::size_t kNameMost = 40;
constexpr std::size_t kBarLeast = 10;
constexpr std::size_t kBarMost = 24;

constexpr std::array<Layout, 8> kColumns{{{Column::Name, "NAME", kNameLeast, false},
                                          {Column::Address, "ADDRESS", 12, false},
                                          {Column::Rssi, "RSSI", 4, true},
                                          {Column::Bar, "", kBarLeast, false},
                                          {Column::Level, "LEVEL", 6, false},
                                          {Column::Battery, "BATTERY", 7, true},
                                          {Column::Model, "MODEL", 5, true},
                                          {Column::Heard, "HEARD", 7, true}}};

// What goes first where there is little room.
constexpr std::array<Column, 6> kLeastNeeded{Column::Model,   Column::Heard, Column::Bar,
                                             Column::Battery, Column::Name,  Column::Level};

std::size_t widthOf(const std::vector<Layout>& columns) {
  std::size_t width = 1;
  for (const auto& column : columns) width += column.width + kGap;
  return width - kGap + 1;
}

void remove(std::vector<Layout>& columns, Column which) {
  std::erase_if(columns, [which](const Layout& column) { return column.column == which; });
}

void widen(std::vector<Layout>& columns, Column which, std::size_t most, std::size_t width) {
  const auto used = widthOf(columns);
  for (auto& column : columns) {
    if (column.column == which && used < width) {
      column.width = std::max(column.width, std::min(most, column.width + width - used));
    }
  }
}

std::vector<Layout> layoutFor(const ScanView& view, std::size_t width) {
  std::vector<Layout> columns(kColumns.begin(), kColumns.end());
  std::size_t name = 0;
  for (const auto& row : view.rows) name = std::max(name, columnsOf(row.name));
  if (name == 0) remove(columns, Column::Name);
  for (const auto column : kLeastNeeded) {
    if (widthOf(columns) > width) remove(columns, column);
  }
  widen(columns, Column::Name, std::clamp(name, kNameLeast, kNameMost), width);
  widen(columns, Column::Bar, kBarMost, width);
  return columns;
}

std::string agoOf(const TagRow& row, std::chrono::system_clock::time_point now) {
  if (!row.lastAdvertised) return "-";
  const auto seconds = std::chrono::floor<std::chrono::seconds>(now - *row.lastAdvertised).count();
  if (seconds < 1) return "now";
  return seconds < 120 ? std::to_string(seconds) + " s" : std::to_string(seconds / 60) + " min";
}

struct Value {
  std::string text;
  Style style = Style::Plain;
};

Value valueOf(const TagRow& row, Column column, const ScanView& view) {
  const auto strength = row.rssi ? strengthStyle(static_cast<double>(*row.rssi)) : Style::Dim;
  switch (column) {
    case Column::Name:
      return {row.name, Style::Bold};
    case Column::Address:
      return {row.address};
    case Column::Rssi:
      return {row.rssi ? std::to_string(*row.rssi) : "-", strength};
    case Column::Level:
      return {row.level ? std::string(levelName(*row.level)) : "-", strength};
    case Column::Battery:
      return {std::to_string(row.battery), batteryStyle(row.battery)};
    case Column::Model:
      return {row.model ? std::to_string(*row.model) : "-"};
    case Column::Heard:
      return {agoOf(row, view.now), Style::Dim};
    case Column::Bar:
      break;
  }
  return {};
}

void drawRow(Canvas& canvas, std::size_t y, const std::vector<Layout>& columns, const TagRow& row,
             const ScanView& view) {
  std::size_t x = 1;
  for (const auto& [column, title, width, right] : columns) {
    const auto value = valueOf(row, column, view);
    if (column == Column::Bar) {
      const auto share = row.rssi ? strengthShare(static_cast<double>(*row.rssi)) : 0;
      canvas.bar(x, y, width, share, strengthStyle(static_cast<double>(row.rssi.value_or(0))));
    } else if (right) {
      canvas.putRight(x + width, y, value.text, value.style);
    } else {
      canvas.put(x, y, value.text, value.style, width);
    }
    x += width + kGap;
  }
}

// The heading and, from the row after it, as many tags as fit above `end`.
void drawRows(Canvas& canvas, std::size_t top, std::size_t end, const ScanView& view) {
  const auto columns = layoutFor(view, canvas.width());
  std::size_t x = 1;
  for (const auto& [column, title, width, right] : columns) {
    if (right) {
      canvas.putRight(x + width, top, title, Style::Bold);
    } else {
      canvas.put(x, top, title, Style::Bold);
    }
    x += width + kGap;
  }
  const auto room = end > top ? end - top - 1 : 0;
  const bool clipped = view.rows.size() > room;
  const auto shown = clipped && room > 0 ? room - 1 : std::min(room, view.rows.size());
  for (std::size_t i = 0; i < shown; ++i) drawRow(canvas, top + 1 + i, columns, view.rows[i], view);
  if (clipped && room > 0) {
    const auto more = std::to_string(view.rows.size() - shown);
    canvas.put(1, top + 1 + shown, "and " + more + " more", Style::Dim);
  }
}

}  // namespace

std::vector<std::string> drawTable(const ScanView& view, Look look) {
  look.height = view.rows.empty() ? 1 : view.rows.size() + 1;
  Canvas canvas(look);
  if (view.rows.empty()) {
    canvas.put(1, 0, "no tag heard", Style::Dim);
  } else {
    drawRows(canvas, 0, canvas.height(), view);
  }
  return canvas.lines();
}

std::vector<std::string> drawScan(const ScanView& view, const Look& look) {
  Canvas canvas(look);
  const bool roomy = look.height >= 12;
  const auto tags = view.rows.size() == 1 ? "1 tag" : std::to_string(view.rows.size()) + " tags";
  auto x = canvas.put(1, 0, tags + " in range", Style::Bold) + 2;
  canvas.put(x, 0, view.note, Style::Warn);
  const auto left = std::chrono::ceil<std::chrono::seconds>(view.left).count();
  canvas.putRight(look.width - 1, 0, "  " + std::to_string(left) + " s left", Style::Dim);
  const std::size_t top = roomy ? 2 : 1;
  const auto end = look.height - (roomy ? 2 : 1);
  if (view.rows.empty()) {
    canvas.put(1, top, "listening…", Style::Dim);
  } else {
    drawRows(canvas, top, end, view);
  }
  drawFooter(canvas, {{"s", "sort: " + std::string(orderName(view.order))}, {"q", "quit"}});
  return canvas.lines();
}

}  // namespace kvfob

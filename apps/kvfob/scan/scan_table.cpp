// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/scan_table.h"

#include <algorithm>
#include <array>

#include "apps/kvfob/base/text.h"
#include "apps/kvfob/terminal/frame.h"
#include "apps/kvfob/terminal/plot.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;

// Tags advertise every second or so, and one advertisement in a few is lost.
constexpr auto kQuietAfter = 10s;

enum class Column { Bound, Name, Address, Rssi, Bar, Level, Battery, Model, Heard };

struct Layout {
  Column column;
  std::string_view title;
  std::size_t width;
  bool right;
};

// Where each begins; a name takes what the others leave.
constexpr std::size_t kBegin = 2;  // the mark of the selected one stands before
constexpr std::size_t kGap = 2;
constexpr std::size_t kNameLeast = 8;
constexpr std::size_t kNameMost = 40;
constexpr std::size_t kBarLeast = 10;
constexpr std::size_t kBarMost = 24;

constexpr std::array<Layout, 9> kColumns{{{Column::Bound, "", 1, false},
                                          {Column::Name, "NAME", kNameLeast, false},
                                          {Column::Address, "ADDRESS", 12, false},
                                          {Column::Rssi, "RSSI", 4, true},
                                          {Column::Bar, "", kBarLeast, false},
                                          {Column::Level, "LEVEL", 6, false},
                                          {Column::Battery, "BATTERY", 7, true},
                                          {Column::Model, "MODEL", 5, true},
                                          {Column::Heard, "HEARD", 7, true}}};

// What goes first where there is little room.
constexpr std::array<Column, 7> kLeastNeeded{Column::Model, Column::Bar,   Column::Battery,
                                             Column::Heard, Column::Bound, Column::Name,
                                             Column::Level};

std::size_t widthOf(const std::vector<Layout>& columns) {
  std::size_t width = kBegin;
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

// The longest name among those that may be scrolled to soon counts, so that columns rarely move.
std::vector<Layout> layoutFor(const ScanRows& rows, std::size_t room, std::size_t width) {
  std::vector<Layout> columns(kColumns.begin(), kColumns.end());
  std::size_t name = 0;
  bool bound = false;
  const auto last = std::min(rows.tags.size(), rows.first + 2 * room);
  for (std::size_t i = rows.first > room ? rows.first - room : 0; i < last; ++i) {
    name = std::max(name, columnsOf(rows.tags[i]->row.name));
    bound = bound || rows.tags[i]->row.bound;
  }
  if (name == 0) remove(columns, Column::Name);
  if (!bound) remove(columns, Column::Bound);
  for (const auto column : kLeastNeeded) {
    if (widthOf(columns) > width) remove(columns, column);
  }
  widen(columns, Column::Name, std::clamp(name, kNameLeast, kNameMost), width);
  widen(columns, Column::Bar, kBarMost, width);
  return columns;
}

struct Value {
  std::string text;
  Style style = Style::Plain;
};

Value valueOf(const TagRow& row, Column column, std::chrono::system_clock::time_point now) {
  const auto strength = row.rssi ? strengthStyle(static_cast<double>(*row.rssi)) : Style::Dim;
  switch (column) {
    case Column::Bound:
      return {row.bound ? "●" : "", Style::Accent};
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
      return {agoText(row.lastAdvertised, now), Style::Dim};
    case Column::Bar:
      break;
  }
  return {};
}

void drawRow(Canvas& canvas, std::size_t y, const std::vector<Layout>& columns, const TagRow& row,
             std::chrono::system_clock::time_point now, bool selected) {
  std::size_t x = kBegin;
  std::size_t barAt = 0;
  std::size_t barWidth = 0;
  for (const auto& [column, title, width, right] : columns) {
    const auto value = valueOf(row, column, now);
    if (column == Column::Bar) {
      barAt = x;
      barWidth = width;
    } else if (right) {
      canvas.putRight(x + width, y, value.text, value.style);
    } else {
      canvas.put(x, y, value.text, value.style, width);
    }
    x += width + kGap;
  }
  const bool quiet = isQuiet(row, now);
  if (selected) canvas.put(0, y, "›");
  if (selected || quiet) canvas.restyle(y, selected ? Style::Title : Style::Dim);
  // A bar in reverse would be a gap.
  const auto dbm = static_cast<double>(row.rssi.value_or(0));
  canvas.bar(barAt, y, barWidth, row.rssi ? strengthShare(dbm) : 0,
             quiet ? Style::Dim : strengthStyle(dbm));
}

bool isSortedBy(const std::optional<SortBy>& order, Column column) {
  switch (order.value_or(SortBy::Rssi)) {
    case SortBy::Rssi:
      return order && column == Column::Rssi;
    case SortBy::Battery:
      return column == Column::Battery;
    case SortBy::Name:
      return column == Column::Name;
    case SortBy::Heard:
      return column == Column::Heard;
    case SortBy::Address:
      return column == Column::Address;
  }
  return false;
}

void drawHeading(Canvas& canvas, std::size_t y, const std::vector<Layout>& columns,
                 const std::optional<SortBy>& order) {
  std::size_t x = kBegin;
  for (const auto& [column, title, width, right] : columns) {
    const auto style = isSortedBy(order, column) ? Style::Accent : Style::Bold;
    if (right) {
      canvas.putRight(x + width, y, title, style);
    } else {
      canvas.put(x, y, title, style);
    }
    x += width + kGap;
  }
}

}  // namespace

bool isQuiet(const TagRow& row, std::chrono::system_clock::time_point now) {
  return row.lastAdvertised && now - *row.lastAdvertised >= kQuietAfter;
}

std::string agoText(const std::optional<std::chrono::system_clock::time_point>& then,
                    std::chrono::system_clock::time_point now) {
  if (!then) return "-";
  const auto seconds = std::chrono::floor<std::chrono::seconds>(now - *then).count();
  if (seconds < 1) return "now";
  return seconds < 120 ? std::to_string(seconds) + " s" : std::to_string(seconds / 60) + " min";
}

void drawRows(Canvas& canvas, std::size_t top, std::size_t end, const ScanRows& rows) {
  const auto room = end > top ? end - top - 1 : 0;
  const auto columns = layoutFor(rows, room, canvas.width());
  drawHeading(canvas, top, columns, rows.order);
  for (std::size_t i = 0; i < room && rows.first + i < rows.tags.size(); ++i) {
    const auto y = top + 1 + i;
    drawRow(canvas, y, columns, rows.tags[rows.first + i]->row, rows.now,
            rows.first + i == rows.selected);
  }
}

std::vector<std::string> drawTable(const ScanRows& rows, Look look) {
  look.height = rows.tags.size() + 1;
  Canvas canvas(look);
  if (rows.tags.empty()) {
    canvas.put(1, 0, "no tag heard", Style::Dim);
  } else {
    drawRows(canvas, 0, canvas.height(), rows);
  }
  return canvas.lines();
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/scan_view.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "apps/kvfob/base/text.h"
#include "apps/kvfob/terminal/plot.h"

namespace kvfob {
namespace {

// Smaller than this, there is no blank line around the table; and a panel takes its place.
constexpr std::size_t kRoomy = 16;
constexpr std::size_t kPanelBeside = 20;

// What is asked for most often comes first, for terminals that have no room for all.
constexpr std::array<std::pair<std::string_view, std::string_view>, 12> kHelp{{
    {"↑ ↓ j k", "select a tag, as a click does"},
    {"r", "ring it; once more silences it"},
    {"b", "bind it with a new password"},
    {"w", "watch it; q comes back"},
    {"↵", "what is known of it"},
    {"/", "filter by name or address"},
    {"s", "sort by another column"},
    {"Esc", "give up, close, show all"},
    {"q", "quit"},
    {"PgUp", "also PgDn, Home, End, wheel"},
    {"●", "bound from here"},
    {"dim", "not heard for 10 seconds"},
}};

std::string countText(const ScanView& view) {
  auto tags = view.heard == 1 ? "1 tag" : std::to_string(view.heard) + " tags";
  if (view.filter.empty()) return tags;
  return std::to_string(view.rows.tags.size()) + " of " + tags;
}

std::string timeText(const ScanView& view) {
  using std::chrono::seconds;
  if (view.left) return std::to_string(std::chrono::ceil<seconds>(*view.left).count()) + " s left";
  return clockText(view.elapsed);
}

void drawHeader(Canvas& canvas, const ScanView& view, std::size_t room) {
  auto x = canvas.put(1, 0, countText(view), Style::Bold) + 2;
  if (view.simulated) x = canvas.put(x, 0, "simulated", Style::Warn) + 2;
  if (view.typingFilter || !view.filter.empty()) {
    canvas.put(x, 0, "/" + view.filter + (view.typingFilter ? "_" : ""), Style::Accent);
  }
  auto right = timeText(view);
  const auto count = view.rows.tags.size();
  if (count > room && view.rows.selected) {
    right.insert(0, std::to_string(*view.rows.selected + 1) + "/" + std::to_string(count) + "  ");
  }
  canvas.putRight(canvas.width() - 1, 0, "  " + right, Style::Dim);
}

void drawHelp(Canvas& canvas, const ScanLayout& layout) {
  drawRule(canvas, layout.panel, "Keys");
  auto y = layout.panel + 1;
  constexpr std::size_t kColumn = 10;
  for (const auto& [key, what] : kHelp) {
    if (y >= layout.panelEnd) return;
    canvas.put(1, y, key, Style::Accent);
    canvas.put(kColumn, y++, what);
  }
}

std::string rangeOf(const std::vector<Sample>& samples) {
  if (samples.empty()) return "";
  const auto [low, high] = std::minmax_element(
      samples.begin(), samples.end(), [](const auto& a, const auto& b) { return a.dbm < b.dbm; });
  return std::to_string(low->dbm) + " to " + std::to_string(high->dbm) + " dBm";
}

void drawDetails(Canvas& canvas, const ScanLayout& layout, const ScanView& view) {
  const auto place = view.rows.selected.value_or(0);
  if (place >= view.rows.tags.size()) return drawRule(canvas, layout.panel, "Details");
  const auto& [row, firstHeard, samples] = *view.rows.tags[place];
  drawRule(canvas, layout.panel, row.name.empty() ? row.address : row.name, rangeOf(samples));
  auto y = layout.panel + 1;
  std::size_t x = 1;
  const auto fact = [&](const std::string& name, const std::string& value) {
    if (x > 1 && x + columnsOf(name) + 1 + columnsOf(value) >= canvas.width()) {
      x = 1;
      ++y;
    }
    if (y < layout.panelEnd) x = drawFact(canvas, x, y, name, value);
  };
  const auto* password = view.passwordSaved ? "yes, password saved" : "yes, password not saved";
  fact("Address", row.address);
  fact("Bound", row.bound ? password : "not from here");
  fact("Signal", row.rssi ? std::to_string(*row.rssi) + " dBm" : "not measured");
  fact("Distance", row.level ? std::string(levelName(*row.level)) : "not known");
  fact("Battery", std::to_string(row.battery) + " of 255");
  fact("Model", row.model ? std::to_string(*row.model) : "not told");
  fact("First heard", firstHeard ? clockTime(*firstHeard).substr(0, 8) : "-");
  fact("Last heard", agoText(row.lastAdvertised, view.rows.now));
  ++y;
  if (y < layout.panelEnd) drawPlot(canvas, y, layout.panelEnd - y, samples, view.elapsed);
}

void drawNote(Canvas& canvas, const ScanView& view, std::size_t y) {
  if (!view.question.empty()) {
    canvas.put(1, y, view.question, Style::Accent);
  } else {
    canvas.put(1, y, view.note, view.noteStyle);
  }
}

void drawKeys(Canvas& canvas, const ScanView& view) {
  if (!view.answers.empty()) return drawFooter(canvas, view.answers);
  if (view.typingFilter) {
    return drawFooter(canvas, {{"Enter", "keep"}, {"Esc", "show all"}});
  }
  if (view.panel == ScanPanel::Help) return drawFooter(canvas, {{"any key", "back"}});
  std::vector<KeyHint> keys{{"?", "help"},  {"q", "quit"}, {"r", "ring"},   {"b", "bind"},
                            {"w", "watch"}, {"↵", "more"}, {"/", "filter"}, {"s", "sort"}};
  if (view.busy) keys.insert(keys.begin(), {"Esc", "give up"});
  drawFooter(canvas, keys);
}

}  // namespace

ScanLayout layoutOf(ScanPanel panel, const Look& look) {
  const bool roomy = look.height >= kRoomy;
  ScanLayout layout;
  layout.top = roomy ? 2 : 1;
  layout.note = look.height >= 4 ? look.height - 2 : 0;
  layout.end = layout.note != 0 ? layout.note : look.height - std::min<std::size_t>(1, look.height);
  if (roomy) --layout.end;
  if (panel == ScanPanel::None || layout.end <= layout.top) return layout;
  layout.panelEnd = layout.end;
  const auto rows = layout.end - layout.top;
  layout.panel = look.height >= kPanelBeside ? layout.top + rows * 2 / 5 : layout.top;
  if (panel == ScanPanel::Help) {
    layout.panel = std::max(layout.top, layout.panelEnd - std::min(rows, kHelp.size() + 1));
  }
  layout.end = layout.panel;
  return layout;
}

std::size_t scrolled(std::size_t first, std::size_t selected, std::size_t count, std::size_t room) {
  if (count <= room || room == 0) return count <= room ? 0 : selected;
  const auto least = selected + 1 > room ? selected + 1 - room : 0;
  return std::clamp(first, least, std::min(selected, count - room));
}

std::vector<std::string> drawScan(const ScanView& view, const Look& look) {
  Canvas canvas(look);
  const auto layout = layoutOf(view.panel, look);
  drawHeader(canvas, view, layout.room());
  if (layout.room() > 0) {
    if (view.rows.tags.empty()) {
      canvas.put(1, layout.top, view.heard == 0 ? "listening…" : "no tag matches", Style::Dim);
    } else {
      drawRows(canvas, layout.top, layout.end, view.rows);
    }
  }
  if (layout.panelEnd > layout.panel) {
    view.panel == ScanPanel::Help ? drawHelp(canvas, layout) : drawDetails(canvas, layout, view);
  }
  if (layout.note != 0) drawNote(canvas, view, layout.note);
  if (look.height > 1) drawKeys(canvas, view);
  return canvas.lines();
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/canvas.h"

#include <locale.h>
#include <wchar.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace kvfob {
namespace {

// The character tables of UTF-8, whatever the user's locale is, in force for as long as it lives.
class Utf8Locale {
 public:
  Utf8Locale() : before_(uselocale(tables())) {}
  ~Utf8Locale() { uselocale(before_); }
  Utf8Locale(const Utf8Locale&) = delete;
  Utf8Locale& operator=(const Utf8Locale&) = delete;

 private:
  static locale_t tables() {
    static const locale_t kUtf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return kUtf8;
  }

  locale_t before_;
};

struct Glyph {
  std::string text;
  std::size_t columns;
};

// What is not text, such as an escape character in a name, becomes a question mark.
std::vector<Glyph> glyphsOf(std::string_view text) {
  const Utf8Locale locale;
  std::vector<Glyph> glyphs;
  mbstate_t state{};
  while (!text.empty()) {
    wchar_t character = 0;
    auto size = mbrtowc(&character, text.data(), text.size(), &state);
    const bool valid = size != 0 && size <= text.size();
    if (!valid) {
      size = 1;
      state = {};
    }
    const int width = valid ? wcwidth(character) : -1;
    if (width > 0) {
      glyphs.push_back({std::string(text.substr(0, size)), static_cast<std::size_t>(width)});
    } else if (width < 0) {
      glyphs.push_back({"?", 1});
    } else if (!glyphs.empty()) {
      glyphs.back().text += text.substr(0, size);  // an accent of its own
    }
    text.remove_prefix(size);
  }
  return glyphs;
}

constexpr std::array<std::pair<std::string_view, char>, 24> kLookalikes{{
    {"─", '-'}, {"│", '|'}, {"┤", '|'}, {"┴", '+'}, {"└", '+'}, {"●", '*'}, {"○", 'o'}, {"░", '.'},
    {"┈", '.'}, {"▁", '.'}, {"▂", '.'}, {"▃", ':'}, {"▄", ':'}, {"▅", ':'}, {"▆", '|'}, {"▇", '|'},
    {"█", '#'}, {"…", '~'}, {"›", '>'}, {"→", '>'}, {"←", '<'}, {"↵", '<'},
}};

std::string inAscii(const std::string& text) {
  if (text.size() == 1) return text;
  for (const auto& [symbol, ascii] : kLookalikes) {
    if (symbol == text) return {ascii};
  }
  return "?";
}

}  // namespace

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  for (const auto& glyph : glyphsOf(text)) columns += glyph.columns;
  return columns;
}

Canvas::Canvas(const Look& look) : look_(look), rows_(look.height, Row(look.width)) {}

void Canvas::place(Row& row, std::size_t x, std::string text, std::size_t columns,
                   Style style) const {
  // Half a wide character is none.
  if (row[x].text.empty()) row[x - 1].text = " ";
  const auto after = x + columns;
  if (after < row.size() && row[after].text.empty()) row[after].text = " ";
  if (!look_.unicode) text = inAscii(text) + std::string(columns - 1, ' ');
  row[x] = {std::move(text), style};
  if (columns == 2) row[x + 1] = {"", style};
}

std::size_t Canvas::put(std::size_t x, std::size_t y, std::string_view text, Style style,
                        std::size_t most) {
  if (y >= rows_.size() || x >= look_.width) return x;
  auto& row = rows_[y];
  const auto end = x + std::min(most, look_.width - x);
  const bool cut = columnsOf(text) > end - x;
  for (auto& [glyph, columns] : glyphsOf(text)) {
    const auto room = end - x;
    if (cut && columns + 1 > room) break;
    place(row, x, std::move(glyph), columns, style);
    x += columns;
  }
  if (cut && x < end) place(row, x++, "…", 1, style);
  return x;
}

void Canvas::putRight(std::size_t end, std::size_t y, std::string_view text, Style style) {
  const auto columns = columnsOf(text);
  put(end > columns ? end - columns : 0, y, text, style);
}

void Canvas::bar(std::size_t x, std::size_t y, std::size_t columns, double share, Style style) {
  const auto all = static_cast<double>(columns);
  const auto filled = static_cast<std::size_t>(std::lround(std::clamp(share, 0.0, 1.0) * all));
  for (std::size_t i = 0; i < columns; ++i) {
    put(x + i, y, i < filled ? "█" : "░", i < filled ? style : Style::Dim);
  }
}

void Canvas::restyle(std::size_t y, Style style) {
  if (y >= rows_.size()) return;
  for (auto& cell : rows_[y]) cell.style = style;
}

std::vector<std::string> Canvas::lines() const {
  std::vector<std::string> lines;
  for (const auto& row : rows_) lines.push_back(lineOf(row));
  return lines;
}

std::string Canvas::lineOf(const Row& row) const {
  const auto last = std::find_if(row.rbegin(), row.rend(), [this](const Cell& cell) {
    return cell.text != " " || (look_.color && cell.style == Style::Title);
  });
  std::string line;
  for (auto cell = row.begin(); cell != last.base();) {
    const auto end = std::find_if(cell, last.base(),
                                  [&](const Cell& other) { return other.style != cell->style; });
    const auto style = cell->style;
    std::string text;
    for (; cell != end; ++cell) text += cell->text;
    line += look_.color ? paint(style, text) : text;
  }
  return line;
}

}  // namespace kvfob

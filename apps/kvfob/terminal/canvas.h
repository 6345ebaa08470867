// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What is drawn before it reaches a terminal.
#ifndef APPS_KVFOB_TERMINAL_CANVAS_H
#define APPS_KVFOB_TERMINAL_CANVAS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "apps/kvfob/terminal/console.h"

namespace kvfob {

/// How many columns UTF-8 text takes on a terminal.
std::size_t columnsOf(std::string_view text);

/// What a drawing has to fit, and what it may use.
struct Look {
  std::size_t width = 80;
  std::size_t height = 24;
  bool color = false;
  bool unicode = true;  ///< Else each character outside ASCII becomes one that looks like it, or ?.
};

/// Cells in rows. Whatever falls outside is cut, so that no line can be too wide.
class Canvas {
 public:
  explicit Canvas(const Look& look);

  std::size_t width() const { return look_.width; }
  std::size_t height() const { return rows_.size(); }

  /// Writes UTF-8 text, at most `most` columns of it; cut text ends in an ellipsis.
  ///
  /// @return the column after it.
  std::size_t put(std::size_t x, std::size_t y, std::string_view text, Style style = Style::Plain,
                  std::size_t most = SIZE_MAX);

  /// As `put`, so that the text ends before column `end`.
  void putRight(std::size_t end, std::size_t y, std::string_view text, Style style = Style::Plain);

  /// A bar of `columns`, filled by `share`, 0 to 1.
  void bar(std::size_t x, std::size_t y, std::size_t columns, double share, Style style);

  /// Gives the whole row one style, blanks included.
  void restyle(std::size_t y, Style style);

  /// One text for each row, without blanks at its end.
  std::vector<std::string> lines() const;

 private:
  struct Cell {
    std::string text = " ";  // empty: the right half of a wide character
    Style style = Style::Plain;
  };
  using Row = std::vector<Cell>;

  void place(Row& row, std::size_t x, std::string text, std::size_t columns, Style style) const;
  std::string lineOf(const Row& row) const;

  const Look look_;
  std::vector<Row> rows_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_TERMINAL_CANVAS_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A line of input with editing, history and completion.
#ifndef APPS_KVFOB_SHELL_LINE_EDITOR_H
#define APPS_KVFOB_SHELL_LINE_EDITOR_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "apps/kvfob/terminal/loop.h"

namespace kvfob {

/// What may stand where the last of these words is, given those before it.
using Completer = std::function<std::vector<std::string>(const std::vector<std::string>& words)>;

/// One at a time. The terminal is as it was whenever no line is being read.
class LineEditor {
 public:
  /// @param history  The file in which lines are kept between runs, readable by its owner only;
  ///                 empty for none.
  LineEditor(Loop& loop, std::string history, Completer completer);
  ~LineEditor();
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  enum class End { Line, Input, Signal };

  /// Reads a line, while the event queue goes on. Where the input is no terminal, it just reads.
  ///
  /// @return whether there is one, or the input has ended, or a signal came.
  End read(const std::string& prompt, std::string& line);

 private:
  End readPlain(std::string& line);
  void remember(const std::string& line) const;

  Loop& loop_;
  const std::string history_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_SHELL_LINE_EDITOR_H

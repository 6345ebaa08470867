// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Where the program writes, and with what emphasis.
#ifndef APPS_KVFOB_TERMINAL_CONSOLE_H
#define APPS_KVFOB_TERMINAL_CONSOLE_H

#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/cli/options.h"

namespace kvfob {

enum class Style { Plain, Bold, Dim, Good, Warn, Bad, Accent, Title };

/// The text with the escape sequences of its style.
std::string paint(Style style, std::string_view text);

/// Standard output and standard error.
class Console {
 public:
  /// @param live  Whether the output is a terminal on which a screen can be drawn.
  /// @param status  Whether standard error is one on which a status line can be shown.
  Console(std::ostream& out, std::ostream& err, bool color, bool live, bool status = false)
      : out_(out), err_(err), color_(color), live_(live), status_(status) {}

  /// The process's own streams; the environment has its say in the colours.
  static Console standard(ColorMode mode);

  bool live() const { return live_; }
  bool color() const { return color_; }

  /// The text, in a colour if colours are on.
  std::string styled(Style style, std::string_view text) const;

  /// Writes one line of output at once.
  void line(std::string_view text = {});

  /// Writes lines, each with its end, at once.
  void block(std::string_view lines);

  /// Writes one line for the user beside the output: "kvfob: ...".
  void note(std::string_view text);

  /// Shows a line on standard error until the next one, until something else is written, or until
  /// an empty one takes it away.
  void status(std::string_view text);
  bool showsStatus() const { return status_; }

  /// While a screen is drawn, notes go to `taker`; an absent one ends that.
  void divertNotes(std::function<void(std::string_view)> taker) { taker_ = std::move(taker); }

  /// Whether the output still takes what is written.
  bool good() const { return out_.good(); }

  /// How a run ends whose output takes no more: like one that SIGPIPE ended if its reader went
  /// away, which is no error that anybody wants to read about.
  Outcome outputLost() const;

 private:
  std::ostream& out_;
  std::ostream& err_;
  bool color_;
  bool live_;
  bool status_;
  bool statusShown_ = false;
  int error_ = 0;  // errno of the first write that failed
  std::function<void(std::string_view)> taker_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_TERMINAL_CONSOLE_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The terminal that a view takes over.
#ifndef APPS_KVFOB_TERMINAL_SCREEN_H
#define APPS_KVFOB_TERMINAL_SCREEN_H

#include <functional>
#include <string>
#include <vector>

#include "apps/kvfob/terminal/canvas.h"

namespace kvfob {

class Loop;

// Keys beside the characters.
inline constexpr char kEscapeKey = '\033';
inline constexpr char kEraseKey = '\177';
inline constexpr char kEnterKey = '\n';

/// Shows a drawing on the terminal's alternate screen, without a cursor, and reads single keys.
///
/// One at a time. The terminal is as it was before as soon as this is gone, while the process is
/// stopped, and when it ends early: by a second signal, an exception that nobody catches, a crash.
class Screen {
 public:
  /// `loop` serves it: signals of the terminal, and keys.
  ///
  /// @param key     Called with each key.
  /// @param redraw  Called when what was shown is lost, or the size is another. It is to `show`.
  Screen(Loop& loop, std::function<void(char)> key, std::function<void()> redraw);
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  /// What a drawing has to fit now.
  Look look(bool color) const;

  void show(const std::vector<std::string>& lines);

  // For the loop.

  /// The descriptor that keys come from; -1 when there is none.
  int fd() const { return keys_; }
  void readKeys();
  void suspend();
  /// After a stop, and when the size has changed.
  void resume();

  /// Gives the terminal back at once, from anywhere, a signal handler included.
  static void giveBack();

 private:
  void closeKeys();

  Loop& loop_;
  const std::function<void(char)> key_;
  const std::function<void()> redraw_;
  int keys_ = -1;
  std::vector<std::string> shown_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_TERMINAL_SCREEN_H

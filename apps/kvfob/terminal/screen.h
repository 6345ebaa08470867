// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The terminal that a view takes over.
#ifndef APPS_KVFOB_TERMINAL_SCREEN_H
#define APPS_KVFOB_TERMINAL_SCREEN_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "apps/kvfob/terminal/canvas.h"
#include "apps/kvfob/terminal/keys.h"

namespace kvfob {

class Loop;

/// What to write to a terminal that shows `shown`, so that it shows `lines`: only what differs.
std::string difference(const std::vector<std::string>& shown,
                       const std::vector<std::string>& lines);

/// Shows a drawing on the terminal's alternate screen, without a cursor, and reads single keys.
///
/// A second one covers the first for as long as it lives. The terminal is as it was before as soon
/// as the last has gone, while the process is stopped, and when it ends early: by a second signal,
/// an exception that nobody catches, a crash.
class Screen {
 public:
  /// `loop` serves it: signals of the terminal, and keys.
  ///
  /// @param key     Called with each key.
  /// @param redraw  Called when what was shown is lost, or the size is another. It is to `show`.
  Screen(Loop& loop, std::function<void(const Key&)> key, std::function<void()> redraw);
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  /// What a drawing has to fit now.
  Look look(bool color) const;

  void show(const std::vector<std::string>& lines);

  /// From now on clicks and the wheel are keys, until the terminal is given back.
  void takeMouse();

  // For the loop.

  /// The descriptor that keys come from; -1 when there is none.
  int fd() const;
  void readKeys();
  void suspend();
  /// After a stop, and when the size has changed.
  void resume();

  /// Gives the terminal back at once, from anywhere, a signal handler included.
  static void giveBack();

 private:
  void press(const std::vector<Key>& keys);

  Loop& loop_;
  Screen* const below_;
  const std::function<void(const Key&)> key_;
  const std::function<void()> redraw_;
  const bool unicode_;
  KeyReader reader_;
  unsigned reads_ = 0;
  std::vector<std::string> shown_;
  const std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
};

}  // namespace kvfob

#endif  // APPS_KVFOB_TERMINAL_SCREEN_H

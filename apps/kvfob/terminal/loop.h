// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The program's own loop around the library's event queue.
#ifndef APPS_KVFOB_TERMINAL_LOOP_H
#define APPS_KVFOB_TERMINAL_LOOP_H

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "KVFobLink/KVEventQueue.h"
#include "apps/kvfob/terminal/signals.h"

namespace kvfob {

class Screen;

/// Dispatches an event queue, and looks out for signals meanwhile, and for keys while there is a
/// screen. Make it before any thread is made.
class Loop {
 public:
  Loop(std::shared_ptr<KVEventQueue> queue, const SignalFd& signals)
      : queue_(std::move(queue)), signals_(signals) {}

  KVEventQueue& queue() const { return *queue_; }

  /// The first signal that came; 0 for none. A second one ends the process at once: whoever asks
  /// twice does not want to wait.
  int signal() const { return signal_; }

  /// The signal has been heeded; the next one is the first again.
  void forgetSignal() { signal_ = 0; }

  /// Runs until `condition` holds, which is checked after each dispatch, or `most` has passed.
  ///
  /// @return whether it holds.
  bool runUntil(const std::function<bool()>& condition,
                std::optional<std::chrono::milliseconds> most = std::nullopt);

  /// Calls `ready` when `fd` can be read, from now on; below zero for nothing.
  void setInput(int fd, std::function<void()> ready) {
    input_ = fd;
    inputReady_ = std::move(ready);
  }

  /// The screen that this serves from now on; absent for none.
  void attach(Screen* screen) { screen_ = screen; }
  Screen* screen() const { return screen_; }

 private:
  void wait(std::optional<KVEventQueue::Duration> most);
  void takeSignal();
  void takeTerminalSignal();

  const std::shared_ptr<KVEventQueue> queue_;
  const SignalFd& signals_;
  const SignalFd terminalSignals_{SIGWINCH, SIGTSTP, SIGCONT};
  Screen* screen_ = nullptr;
  int input_ = -1;
  std::function<void()> inputReady_;
  int signal_ = 0;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_TERMINAL_LOOP_H

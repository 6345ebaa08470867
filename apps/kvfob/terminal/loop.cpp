// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/loop.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/terminal/screen.h"

namespace kvfob {

bool Loop::runUntil(const std::function<bool()>& condition,
                    std::optional<std::chrono::milliseconds> most) {
  const auto start = queue_->now();
  while (!condition()) {
    const auto passed = queue_->now() - start;
    if (most && passed >= *most) return false;
    wait(most ? std::optional(*most - passed) : std::nullopt);
    queue_->dispatch();
  }
  return true;
}

void Loop::wait(std::optional<KVEventQueue::Duration> most) {
  // poll(2) passes over a descriptor of -1.
  std::array<pollfd, 5> polled{{{queue_->fd(), POLLIN, 0},
                                {signals_.fd(), POLLIN, 0},
                                {terminalSignals_.fd(), POLLIN, 0},
                                {screen_ != nullptr ? screen_->fd() : -1, POLLIN, 0},
                                {input_, POLLIN, 0}}};
  int limit = -1;
  if (most) {
    const auto millis = std::chrono::ceil<std::chrono::milliseconds>(*most).count();
    limit = static_cast<int>(std::min<std::int64_t>(millis, 3'600'000));
  }
  if (poll(polled.data(), polled.size(), limit) <= 0) return;
  if (polled[1].revents != 0) takeSignal();
  if (polled[2].revents != 0) takeTerminalSignal();
  if (polled[3].revents != 0 && screen_ != nullptr) screen_->readKeys();
  if (polled[4].revents != 0 && inputReady_) inputReady_();
}

void Loop::takeSignal() {
  const int signal = signals_.take();
  if (signal == 0) return;
  if (signal_ != 0) {
    Screen::giveBack();
    _exit(kSignal + signal);
  }
  signal_ = signal;
}

void Loop::takeTerminalSignal() {
  const int signal = terminalSignals_.take();
  if (signal == SIGTSTP) {
    if (screen_ != nullptr) screen_->suspend();
    stopHere();
  }
  if (signal != 0 && screen_ != nullptr) screen_->resume();
}

}  // namespace kvfob

#include "apps/kvfob/loop.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "apps/kvfob/exit_code.h"

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
  std::array<pollfd, 2> polled{{{queue_->fd(), POLLIN, 0}, {signals_.fd(), POLLIN, 0}}};
  int limit = -1;
  if (most) {
    const auto millis = std::chrono::ceil<std::chrono::milliseconds>(*most).count();
    limit = static_cast<int>(std::min<std::int64_t>(millis, 3'600'000));
  }
  if (poll(polled.data(), polled.size(), limit) <= 0 || polled[1].revents == 0) return;
  const int signal = signals_.take();
  if (signal == 0) return;
  if (signal_ != 0) _exit(kSignal + signal);
  signal_ = signal;
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef PLATFORM_LINUX_WATCH_SET_H
#define PLATFORM_LINUX_WATCH_SET_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "KVFobLink/KVLinuxPlatform.h"
#include "platform/linux/owned_fd.h"

namespace kv {

/// The watched descriptors of an event queue. Event thread only, but a watch holds it weakly and
/// may outlive it.
class WatchSet : public std::enable_shared_from_this<WatchSet> {
 public:
  using Ready = std::function<void(short)>;
  /// One watch whose descriptor was found ready.
  struct Event {
    std::uint64_t watch;
    short events;
  };

  explicit WatchSet(std::shared_ptr<const OwnedFd> epoll) : epoll_(std::move(epoll)) {}

  std::unique_ptr<KVLinuxEventQueue::Watch> add(int fd, short events, Ready ready);
  void setEvents(std::uint64_t id, short events);
  void remove(std::uint64_t id);

  /// Finds what is ready, at most a bounded number; if `wait`, not before the epoll descriptor is.
  std::vector<Event> poll(bool wait) const;

  /// Calls the watch, if it still lives and still wants the event.
  bool deliver(const Event& event);

 private:
  struct Entry {
    int fd;
    OwnedFd substitute;  ///< For what epoll refuses: a second watch of one descriptor, or a file.
    short events;
    bool alwaysReady;  ///< As poll(2) finds files and the null device.
    Ready ready;
  };

  bool control(int operation, std::uint64_t id, const Entry& entry) const;

  const std::shared_ptr<const OwnedFd> epoll_;
  std::uint64_t lastId_ = 0;
  std::map<std::uint64_t, std::shared_ptr<Entry>> entries_;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_WATCH_SET_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/watch_set.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>

namespace kv {
namespace {

constexpr int kEventsPerRound = 64;

// Linux gives the EPOLL constants the values of the POLL ones.
static_assert(EPOLLIN == POLLIN && EPOLLPRI == POLLPRI && EPOLLOUT == POLLOUT &&
              EPOLLERR == POLLERR && EPOLLHUP == POLLHUP);

// A callback that throws has nowhere to throw to.
void call(const WatchSet::Ready& ready, short events) noexcept { ready(events); }

class Handle : public KVLinuxEventQueue::Watch {
 public:
  Handle(std::weak_ptr<WatchSet> set, std::uint64_t id) : set_(std::move(set)), id_(id) {}
  ~Handle() override {
    if (const auto set = set_.lock()) set->remove(id_);
  }
  void setEvents(short events) override {
    if (const auto set = set_.lock()) set->setEvents(id_, events);
  }

 private:
  std::weak_ptr<WatchSet> set_;
  std::uint64_t id_;
};

}  // namespace

std::unique_ptr<KVLinuxEventQueue::Watch> WatchSet::add(int fd, short events, Ready ready) {
  const std::uint64_t id = ++lastId_;
  auto entry = std::make_shared<Entry>(
      Entry{fd, OwnedFd(), events, /*alwaysReady=*/false, std::move(ready)});
  if (!control(EPOLL_CTL_ADD, id, *entry)) {
    if (errno == EEXIST) {
      entry->substitute = OwnedFd(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    } else if (errno == EPERM) {
      entry->substitute = OwnedFd(eventfd(1, EFD_CLOEXEC));
      entry->alwaysReady = true;
    }
    entry->fd = entry->substitute.get();
    control(EPOLL_CTL_ADD, id, *entry);
  }
  entries_.emplace(id, std::move(entry));
  return std::make_unique<Handle>(weak_from_this(), id);
}

bool WatchSet::control(int operation, std::uint64_t id, const Entry& entry) const {
  short events = entry.events;
  if (entry.alwaysReady) events = (events & (POLLIN | POLLOUT)) != 0 ? POLLIN : 0;
  epoll_event event{};
  event.events = static_cast<std::uint16_t>(events);
  event.data.u64 = id;
  return epoll_ctl(epoll_->get(), operation, entry.fd, &event) == 0;
}

void WatchSet::setEvents(std::uint64_t id, short events) {
  Entry& entry = *entries_.find(id)->second;  // which lasts as long as its handle
  if (entry.events == events) return;
  entry.events = events;
  control(EPOLL_CTL_MOD, id, entry);
}

void WatchSet::remove(std::uint64_t id) {
  const auto found = entries_.find(id);
  const auto entry = std::move(found->second);  // outlives its removal: the callable may be running
  entries_.erase(found);
  control(EPOLL_CTL_DEL, id, *entry);
}

std::vector<WatchSet::Event> WatchSet::poll(bool wait) const {
  std::vector<Event> found;
  if (entries_.empty() && !wait) return found;
  std::array<epoll_event, kEventsPerRound> ready;
  const int count = epoll_wait(epoll_->get(), ready.data(), kEventsPerRound, wait ? -1 : 0);
  for (int i = 0; i < count; ++i) {
    const epoll_event& event = ready[static_cast<std::size_t>(i)];
    if (event.data.u64 != 0) found.push_back({event.data.u64, static_cast<short>(event.events)});
  }
  return found;
}

bool WatchSet::deliver(const Event& event) {
  const auto found = entries_.find(event.watch);
  if (found == entries_.end()) return false;
  const std::shared_ptr<Entry> entry = found->second;
  const int happened = entry->alwaysReady ? POLLIN | POLLOUT : event.events;
  const auto wanted = static_cast<short>(happened & (entry->events | POLLERR | POLLHUP));
  if (wanted == 0) return false;
  call(entry->ready, wanted);
  return true;
}

}  // namespace kv

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef PLATFORM_LINUX_OWNED_FD_H
#define PLATFORM_LINUX_OWNED_FD_H

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace kv {

/// A file descriptor that is closed with its owner; negative means none. Closing leaves errno as it
/// is, so that an owner may go on the way out of a failure.
class OwnedFd {
 public:
  explicit OwnedFd(int fd = -1) : fd_(fd) {}
  OwnedFd(OwnedFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  OwnedFd& operator=(OwnedFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~OwnedFd() {
    if (fd_ < 0) return;
    const int error = errno;
    close(fd_);
    errno = error;
  }

  explicit operator bool() const { return fd_ >= 0; }
  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_OWNED_FD_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/decode/file_input.h"

#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace kvfob {
namespace {

// A pipe that nobody writes to yet must not hold up a signal.
int openFile(const std::string& path) {
  return path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

std::optional<std::uint64_t> sizeOf(int fd) {
  struct stat status {};
  if (fd < 0 || fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace

FileInput::FileInput(const std::string& path, const SignalFd& signals, Console& console)
    : fd_(openFile(path)),
      signals_(signals),
      name_(path == "-" ? "standard input" : path),
      progress_(console, sizeOf(fd_)) {
  if (fd_ < 0) fail();
}

FileInput::~FileInput() {
  if (fd_ > STDERR_FILENO) close(fd_);
}

std::size_t FileInput::read(std::span<std::uint8_t> room) {
  while (outcome_.code == kDone) {
    if (!wait()) continue;
    const auto count = ::read(fd_, room.data(), room.size());
    if (count >= 0) {
      progress_.advance(static_cast<std::size_t>(count));
      return static_cast<std::size_t>(count);
    }
    if (errno != EINTR && errno != EAGAIN) fail();
  }
  return 0;
}

// Whether there is something to read; the bar is kept up to date meanwhile.
bool FileInput::wait() {
  std::array<pollfd, 2> polled{{{fd_, POLLIN, 0}, {signals_.fd(), POLLIN, 0}}};
  poll(polled.data(), polled.size(), progress_.restMs());
  if (polled[1].revents != 0) {
    if (const int signal = signals_.take()) outcome_ = {kSignal + signal, ""};
    return false;
  }
  progress_.advance(0);
  return polled[0].revents != 0;
}

void FileInput::fail() { outcome_ = {kBadInput, "cannot read " + name_ + ": " + strerror(errno)}; }

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/password.h"

#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <span>
#include <utility>

#include "apps/kvfob/terminal/signals.h"

namespace kvfob {
namespace {

// Bytes as they come in, wiped in the end. One line is enough; whatever is longer is refused.
class Buffer {
 public:
  ~Buffer() { explicit_bzero(bytes_.data(), bytes_.size()); }

  bool full() const { return size_ == bytes_.size(); }
  bool hasLine() const { return size_ > 0 && bytes_[size_ - 1] == '\n'; }

  // What read(2) returned.
  ssize_t readFrom(int fd) {
    const auto count = read(fd, bytes_.data() + size_, bytes_.size() - size_);
    if (count > 0) size_ += static_cast<std::size_t>(count);
    return count;
  }

  PasswordResult password() const {
    auto size = size_;
    if (size > 0 && bytes_[size - 1] == '\n') --size;
    if (size > 0 && size < size_ && bytes_[size - 1] == '\r') --size;
    if (size == 0 || size > kPasswordMost) {
      return Outcome{kUsage, "the password must have 1 to 13 bytes" +
                                 std::string(size == 0 ? ", but it is empty" : "")};
    }
    if (memchr(bytes_.data(), '\n', size) != nullptr) {
      return Outcome{kUsage, "the password must be a single line"};
    }
    return Secret(std::string(bytes_.data(), size));
  }

 private:
  std::array<char, 256> bytes_{};
  std::size_t size_ = 0;
};

class File {
 public:
  explicit File(int fd) : fd_(fd) {}
  ~File() {
    if (fd_ > STDERR_FILENO) close(fd_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int fd() const { return fd_; }

 private:
  int fd_;
};

// Switches a terminal's echo off for as long as it lives.
class EchoOff {
 public:
  explicit EchoOff(int fd) : fd_(fd), valid_(tcgetattr(fd, &before_) == 0) {
    if (!valid_) return;
    termios quiet = before_;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    quiet.c_lflag |= ICANON | ECHONL | ISIG;
    tcsetattr(fd_, TCSAFLUSH, &quiet);
  }
  ~EchoOff() {
    if (valid_) tcsetattr(fd_, TCSAFLUSH, &before_);
  }
  EchoOff(const EchoOff&) = delete;
  EchoOff& operator=(const EchoOff&) = delete;

 private:
  int fd_;
  termios before_{};
  bool valid_;
};

// Waits until one of the two can be read, and takes the signal if there is one.
int waitFor(int fd, const SignalFd& signals) {
  std::array<pollfd, 2> polled{{{fd, POLLIN, 0}, {signals.fd(), POLLIN, 0}}};
  while (poll(polled.data(), polled.size(), -1) < 0 && errno == EINTR) {
  }
  return polled[1].revents != 0 ? signals.take() : 0;
}

// Reads until the end, or until a line end where `lines`.
std::optional<Outcome> fill(Buffer& buffer, int fd, bool lines, const SignalFd& signals) {
  while (!buffer.full() && !(lines && buffer.hasLine())) {
    if (const int signal = waitFor(fd, signals)) return Outcome{kSignal + signal, ""};
    const auto count = buffer.readFrom(fd);
    if (count == 0) return std::nullopt;
    if (count < 0 && errno != EINTR && errno != EAGAIN) {
      return Outcome{kUsage, std::string("cannot read the password: ") + strerror(errno)};
    }
  }
  return std::nullopt;
}

PasswordResult readFile(const std::string& path, const SignalFd& signals) {
  const File file(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.fd() < 0) {
    return Outcome{kUsage, "cannot open the password file " + path + ": " + strerror(errno)};
  }
  Buffer buffer;
  if (auto failure = fill(buffer, file.fd(), /*lines=*/false, signals)) return *failure;
  return buffer.password();
}

PasswordResult ask(std::string_view prompt, const SignalFd& signals) {
  const File terminal(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (terminal.fd() < 0) {
    return Outcome{kUsage, "there is no terminal to ask for the password on; give --password-file"};
  }
  const EchoOff echoOff(terminal.fd());
  if (write(terminal.fd(), prompt.data(), prompt.size()) < 0) {
    return Outcome{kUsage, "cannot ask for the password; give --password-file"};
  }
  Buffer buffer;
  if (auto failure = fill(buffer, terminal.fd(), /*lines=*/true, signals)) return *failure;
  return buffer.password();
}

}  // namespace

PasswordResult readPassword(const std::string& file, std::string_view prompt) {
  // A stop from the keyboard waits until the terminal is as it was.
  const SignalFd ends({SIGINT, SIGTERM, SIGHUP, SIGQUIT}, /*held=*/{SIGTSTP});
  return file.empty() ? ask(prompt, ends) : readFile(file, ends);
}

}  // namespace kvfob

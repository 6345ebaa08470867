// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/password.h"

#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/stat.h>
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
      return Outcome{kBadInput, "the password must have 1 to 13 bytes" +
                                    std::string(size == 0 ? ", but it is empty" : "")};
    }
    if (memchr(bytes_.data(), '\n', size) != nullptr) {
      return Outcome{kBadInput, "the password must be a single line"};
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

// Reads until the end, or until a line end where `lines`. A signal that came ends it.
std::optional<Outcome> fill(Buffer& buffer, int fd, bool lines, const SignalFd& signals) {
  while (!buffer.full() && !(lines && buffer.hasLine())) {
    if (const int signal = waitFor(fd, signals)) return Outcome{kSignal + signal, ""};
    const auto count = buffer.readFrom(fd);
    if (count == 0) return std::nullopt;
    if (count < 0 && errno != EINTR && errno != EAGAIN) {
      return Outcome{kBadInput, std::string("cannot read the password: ") + strerror(errno)};
    }
  }
  return std::nullopt;
}

// One answer.
PasswordResult askOnce(const File& terminal, const std::string& prompt) {
  const SignalFd signals({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP});
  while (true) {
    std::optional<Outcome> failure;
    Buffer buffer;
    {
      const EchoOff echoOff(terminal.fd());
      if (write(terminal.fd(), prompt.data(), prompt.size()) < 0) {
        return Outcome{kUsage, "cannot ask for the password; give --password-file"};
      }
      failure = fill(buffer, terminal.fd(), /*lines=*/true, signals);
    }
    if (!failure) return buffer.password();
    if (failure->code != kSignal + SIGTSTP) return *failure;
    stopHere();
  }
}

}  // namespace

PasswordResult readPassword(const std::string& file) {
  const SignalFd signals({SIGINT, SIGTERM, SIGHUP, SIGQUIT});
  const File input(file == "-" ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (input.fd() < 0) {
    return Outcome{kBadInput, "cannot open the password file " + file + ": " + strerror(errno)};
  }
  Buffer buffer;
  if (auto failure = fill(buffer, input.fd(), /*lines=*/false, signals)) return *failure;
  return buffer.password();
}

std::optional<std::string> passwordFileWarning(const std::string& file) {
  struct stat status {};
  if (file == "-" || stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  if ((status.st_mode & (S_IRGRP | S_IROTH)) == 0) return {};
  return "others can read the password in " + file + "; make it yours: chmod 600 " + file;
}

PasswordResult askPassword(const std::string& prompt, const std::string& again) {
  const File terminal(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (terminal.fd() < 0) {
    return Outcome{kUsage, "there is no terminal to ask for the password on; give --password-file"};
  }
  std::string said;
  while (true) {
    auto password = askOnce(terminal, said + prompt);
    if (again.empty() || std::holds_alternative<Outcome>(password)) return password;
    const auto repeated = askOnce(terminal, again);
    if (const auto* failure = std::get_if<Outcome>(&repeated)) return *failure;
    if (std::get<Secret>(repeated).text() == std::get<Secret>(password).text()) return password;
    said = "They differ. ";
  }
}

Outcome confirm(const std::string& question) {
  const File terminal(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  const auto asked = question + " [y/N] ";
  if (terminal.fd() < 0 || write(terminal.fd(), asked.data(), asked.size()) < 0) {
    return {kUsage, "there is no terminal to ask on; add --yes"};
  }
  std::array<char, 64> answer{};
  const auto count = read(terminal.fd(), answer.data(), answer.size());
  const std::string_view word(answer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
  if (word == "y\n" || word == "yes\n" || word == "Y\n") return {};
  return {kSignal + SIGINT, "nothing was done"};
}

}  // namespace kvfob

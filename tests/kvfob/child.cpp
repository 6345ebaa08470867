// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "tests/kvfob/child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace kvfob {
namespace {

constexpr int kPatienceMs = 20'000;

// Keeps the user's own tags and settings out of the tests.
void useOwnFolders() {
  setenv("XDG_STATE_HOME", ::testing::TempDir().c_str(), /*overwrite=*/0);
  setenv("XDG_CONFIG_HOME", ::testing::TempDir().c_str(), /*overwrite=*/0);
}

std::vector<char*> argumentsOf(std::vector<std::string>& arguments) {
  useOwnFolders();
  arguments.insert(arguments.begin(), KVFOB_PROGRAM);
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (auto& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  return pointers;
}

int statusOf(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A file without a name, rewound after it was written to.
class Scratch {
 public:
  explicit Scratch(const std::string& content = {}) {
    std::fwrite(content.data(), 1, content.size(), file_);
    std::rewind(file_);
  }
  ~Scratch() { std::fclose(file_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  int fd() const { return fileno(file_); }

  std::string content() const {
    std::rewind(file_);
    std::string text;
    for (int c = std::fgetc(file_); c != EOF; c = std::fgetc(file_)) text += static_cast<char>(c);
    return text;
  }

 private:
  std::FILE* file_ = std::tmpfile();
};

// In a process of its own: runs the program as a job in the foreground, and ends as that does.
void becomeShell(const std::vector<char*>& arguments) {
  std::signal(SIGTTOU, SIG_IGN);
  sigset_t awaited;
  sigemptyset(&awaited);
  sigaddset(&awaited, SIGUSR1);
  sigprocmask(SIG_BLOCK, &awaited, nullptr);
  const pid_t job = fork();
  setpgid(job, job);
  if (job == 0) {
    tcsetpgrp(STDIN_FILENO, getpid());
    std::signal(SIGTTOU, SIG_DFL);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  int status = 0;
  while (waitpid(job, &status, WUNTRACED) == job && WIFSTOPPED(status)) {
    constexpr std::string_view kStopped = "[stopped]";
    if (write(STDOUT_FILENO, kStopped.data(), kStopped.size()) < 0) break;
    int number = 0;
    sigwait(&awaited, &number);
    kill(job, SIGCONT);
  }
  _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 127);
}

}  // namespace

Child::Child(std::vector<std::string> arguments, bool jobs) {
  const auto pointers = argumentsOf(arguments);
  openpty(&terminal_, &keepOpen_, nullptr, nullptr, nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    close(terminal_);
    login_tty(keepOpen_);
    if (jobs) becomeShell(pointers);
    execv(pointers[0], pointers.data());
    _exit(127);
  }
}

Child::~Child() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    statusOf(pid_);
  }
  close(terminal_);
  close(keepOpen_);
}

void Child::type(const std::string& text) const {
  if (write(terminal_, text.data(), text.size()) < 0) std::perror("type");
}

void Child::signal(int number) const { kill(pid_, number); }

bool Child::readSome() {
  pollfd polled{terminal_, POLLIN, 0};
  std::array<char, 1024> bytes{};
  if (poll(&polled, 1, kPatienceMs) <= 0) return false;
  const auto count = read(terminal_, bytes.data(), bytes.size());
  if (count > 0) output_.append(bytes.data(), static_cast<std::size_t>(count));
  return count > 0;
}

bool Child::awaitText(const std::string& text) {
  // A screen is drawn anew all the time, so the silence alone cannot tell.
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
  while (output_.find(text) == std::string::npos) {
    if (!readSome() || std::chrono::steady_clock::now() > end) return false;
  }
  return true;
}

int Child::awaitEnd() {
  const int status = statusOf(std::exchange(pid_, -1));
  fcntl(terminal_, F_SETFL, O_NONBLOCK);
  std::array<char, 1024> bytes{};
  for (ssize_t count = 1; count > 0;) {
    count = read(terminal_, bytes.data(), bytes.size());
    if (count > 0) output_.append(bytes.data(), static_cast<std::size_t>(count));
  }
  return status;
}

bool Child::echoes() const {
  termios modes{};
  tcgetattr(keepOpen_, &modes);
  return (modes.c_lflag & ECHO) != 0;
}

RunResult runProgram(const std::vector<std::string>& arguments, const std::string& input, int out) {
  auto copy = arguments;
  const auto pointers = argumentsOf(copy);
  const Scratch in(input);
  const Scratch taken;
  const Scratch err;
  const pid_t pid = fork();
  if (pid == 0) {
    setsid();  // without a terminal to ask on
    dup2(in.fd(), STDIN_FILENO);
    dup2(out >= 0 ? out : taken.fd(), STDOUT_FILENO);
    dup2(err.fd(), STDERR_FILENO);
    execv(pointers[0], pointers.data());
    _exit(127);
  }
  const int status = statusOf(pid);
  return {status, taken.content(), err.content()};
}

}  // namespace kvfob

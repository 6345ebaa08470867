// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

namespace kvfob {

SignalFd::SignalFd(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : signals) sigaddset(&set, number);
  fd_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  pthread_sigmask(SIG_BLOCK, &set, &before_);
}

SignalFd::~SignalFd() {
  if (fd_ >= 0) close(fd_);
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

int SignalFd::take() const {
  signalfd_siginfo info{};
  const auto size = read(fd_, &info, sizeof info);
  return size == static_cast<ssize_t>(sizeof info) ? static_cast<int>(info.ssi_signo) : 0;
}

void stopHere() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTSTP);
  std::raise(SIGTSTP);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

}  // namespace kvfob

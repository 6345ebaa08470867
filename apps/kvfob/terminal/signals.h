// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Signals as readable descriptors.
#ifndef APPS_KVFOB_TERMINAL_SIGNALS_H
#define APPS_KVFOB_TERMINAL_SIGNALS_H

#include <csignal>
#include <initializer_list>

namespace kvfob {

/// Blocks signals in the calling thread, and in the threads that it starts, and gives them as a
/// descriptor that is readable once one is pending; the old mask comes back in the end.
class SignalFd {
 public:
  explicit SignalFd(std::initializer_list<int> signals);
  ~SignalFd();
  SignalFd(const SignalFd&) = delete;
  SignalFd& operator=(const SignalFd&) = delete;

  int fd() const { return fd_; }

  /// Takes one pending signal; 0 when there is none.
  int take() const;

 private:
  sigset_t before_{};
  int fd_ = -1;
};

/// Stops the process as Ctrl-Z does by default, which a process that nobody could continue ignores.
/// Returns once it goes on. SIGTSTP is blocked, here and afterwards.
void stopHere();

}  // namespace kvfob

#endif  // APPS_KVFOB_TERMINAL_SIGNALS_H

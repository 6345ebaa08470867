// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef TESTS_KVFOB_CHILD_H
#define TESTS_KVFOB_CHILD_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace kvfob {

/// The program on a pseudo-terminal of its own: what it writes there, and what is typed.
class Child {
 public:
  /// @param jobs  Under a parent that does what a shell does with jobs: it writes "[stopped]" when
  ///              the program stops, and continues it on SIGUSR1. Else nothing can stop it.
  explicit Child(std::vector<std::string> arguments, bool jobs = false);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void type(const std::string& text) const;
  void signal(int number) const;

  /// Reads on until `text` has been written; false when the program ends first or takes too long.
  bool awaitText(const std::string& text);

  /// Forgets what was written, so that the same text can be awaited again.
  void forget() { output_.clear(); }

  /// Reads on until the program ends. Its exit status, or -1 when a signal ended it.
  int awaitEnd();

  const std::string& output() const { return output_; }
  void forgetOutput() { output_.clear(); }

  /// Whether the terminal shows what is typed.
  bool echoes() const;

 private:
  bool readSome();

  int terminal_ = -1;
  int keepOpen_ = -1;  // the terminal's other side, so that its modes outlive the program
  pid_t pid_ = -1;
  std::string output_;
};

struct RunResult {
  int status = -1;
  std::string out;
  std::string err;
};

/// Runs the program without a terminal, with `input` on its standard input. It writes to the
/// descriptor `out` where one is given, and that is not read.
RunResult runProgram(const std::vector<std::string>& arguments, const std::string& input = {},
                     int out = -1);

}  // namespace kvfob

#endif  // TESTS_KVFOB_CHILD_H

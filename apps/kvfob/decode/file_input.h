// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A file, or standard input, that is read until a signal comes.
#ifndef APPS_KVFOB_DECODE_FILE_INPUT_H
#define APPS_KVFOB_DECODE_FILE_INPUT_H

#include <string>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/decode/input.h"
#include "apps/kvfob/terminal/console.h"
#include "apps/kvfob/terminal/progress.h"
#include "apps/kvfob/terminal/signals.h"

namespace kvfob {

class FileInput final : public Input {
 public:
  /// `path` may be "-" for standard input.
  FileInput(const std::string& path, const SignalFd& signals, Console& console);
  ~FileInput() override;
  FileInput(const FileInput&) = delete;
  FileInput& operator=(const FileInput&) = delete;

  std::size_t read(std::span<std::uint8_t> room) override;

  /// What to call it.
  const std::string& name() const { return name_; }

  /// How reading went: done, or why there are no more bytes.
  const Outcome& outcome() const { return outcome_; }

 private:
  bool wait();
  void fail();

  const int fd_;
  const SignalFd& signals_;
  const std::string name_;
  Progress progress_;
  Outcome outcome_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_DECODE_FILE_INPUT_H

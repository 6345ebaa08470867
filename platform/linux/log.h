// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef PLATFORM_LINUX_LOG_H
#define PLATFORM_LINUX_LOG_H

#include <functional>
#include <mutex>
#include <string_view>

#include "KVFobLink/KVPlatform.h"

namespace kv {

/// Writes each line at once, so that the lines of several threads do not mix.
class FdLog : public KVLog {
 public:
  /// `fd` stays the caller's.
  explicit FdLog(int fd) : fd_(fd) {}
  void write(std::string_view line) override;

 private:
  const int fd_;
};

/// Hands the lines to a function, one at a time.
class SinkLog : public KVLog {
 public:
  using Sink = std::function<void(std::string_view)>;
  explicit SinkLog(Sink sink) : sink_(std::move(sink)) {}
  void write(std::string_view line) override;

 private:
  std::recursive_mutex mutex_;  ///< The sink may use the library, which may log.
  const Sink sink_;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_LOG_H

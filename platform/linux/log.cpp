// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/log.h"

#include <unistd.h>

#include <cerrno>
#include <string>

namespace kv {

void FdLog::write(std::string_view line) {
  std::string whole;
  whole.reserve(line.size() + 1);
  whole.append(line).push_back('\n');
  std::string_view left = whole;
  while (!left.empty()) {
    const ssize_t written = ::write(fd_, left.data(), left.size());
    if (written >= 0) {
      left.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return;  // there is nowhere to report it
    }
  }
}

void SinkLog::write(std::string_view line) {
  const std::lock_guard lock(mutex_);
  sink_(line);
}

}  // namespace kv

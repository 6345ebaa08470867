// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Getting the bind password without leaving it anywhere.
#ifndef APPS_KVFOB_PASSWORD_H
#define APPS_KVFOB_PASSWORD_H

#include <string>
#include <string_view>
#include <variant>

#include "apps/kvfob/exit_code.h"
#include "protocol/frame.h"

namespace kvfob {

/// A text that is wiped when it is dropped or moved from.
class Secret {
 public:
  Secret() = default;
  explicit Secret(std::string text) : text_(std::move(text)) {}
  Secret(Secret&& other) noexcept;
  Secret& operator=(Secret&& other) noexcept;
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret();

  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

/// The password, or why there is none.
using PasswordResult = std::variant<Secret, Outcome>;

/// The longest password that a tag takes, in bytes; the shortest is one byte.
inline constexpr std::size_t kPasswordMost = kv::kMostPayload;

/// Reads a password: from a file ("-" is standard input), where one line end at its end is dropped;
/// or, when `file` is empty, from the controlling terminal, which shows `prompt` and no echo. The
/// terminal is as before when this returns, also when a signal that asks the program to end arrives
/// meanwhile: that gives the outcome 128 plus its number.
PasswordResult readPassword(const std::string& file, std::string_view prompt);

}  // namespace kvfob

#endif  // APPS_KVFOB_PASSWORD_H

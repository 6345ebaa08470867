// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A tag's password in memory.
#ifndef APPS_KVFOB_BASE_SECRET_H
#define APPS_KVFOB_BASE_SECRET_H

#include <string>
#include <utility>

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

/// The longest password that a tag takes, in bytes; the shortest is one byte.
inline constexpr std::size_t kPasswordMost = kv::kMostPayload;

}  // namespace kvfob

#endif  // APPS_KVFOB_BASE_SECRET_H

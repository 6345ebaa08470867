// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Asking for a new password on a screen that is in use.
#ifndef APPS_KVFOB_SCAN_BIND_PROMPT_H
#define APPS_KVFOB_SCAN_BIND_PROMPT_H

#include <optional>
#include <string>
#include <utility>

#include "apps/kvfob/base/secret.h"
#include "apps/kvfob/terminal/keys.h"

namespace kvfob {

/// Asks for a password twice. What is typed is never shown, and wiped in the end.
class BindPrompt {
 public:
  /// @param tag  The address of the tag that is to be bound.
  explicit BindPrompt(std::string tag) : tag_(std::move(tag)) {}
  ~BindPrompt();
  BindPrompt(const BindPrompt&) = delete;
  BindPrompt& operator=(const BindPrompt&) = delete;

  const std::string& tag() const { return tag_; }

  /// One line: what is asked for, and what was wrong before.
  std::string question() const;

  /// Whether the user wants the password to be kept.
  bool save() const { return save_; }

  /// @return the password once it was given twice.
  std::optional<Secret> type(const Key& key);

 private:
  std::optional<Secret> entered();
  void restart(std::string why);

  const std::string tag_;
  bool save_ = false;
  std::string why_;
  std::string typed_;
  std::optional<std::string> first_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_SCAN_BIND_PROMPT_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/bind_prompt.h"

#include <string.h>

namespace kvfob {
namespace {

// So many that one too many is noticed; they still lie inside the string, which leaves no copy.
constexpr std::size_t kTypedMost = kPasswordMost + 1;
constexpr char kSaveKey = '\t';

void wipe(std::string& text) {
  text.resize(text.capacity());
  explicit_bzero(text.data(), text.size());
  text.clear();
}

}  // namespace

BindPrompt::~BindPrompt() { restart({}); }

std::string BindPrompt::question() const {
  const std::string ask = first_ ? "The same once more: " : "Password to bind with: ";
  return why_ + ask + std::string(typed_.size(), '*') + "_";
}

std::optional<Secret> BindPrompt::type(const Key& key) {
  if (key.kind == KeyKind::Enter) return entered();
  if (isCharacter(key, kSaveKey)) {
    save_ = !save_;
  } else {
    typeInto(typed_, key, kTypedMost);
  }
  return std::nullopt;
}

std::optional<Secret> BindPrompt::entered() {
  if (typed_.empty() || typed_.size() > kPasswordMost) {
    restart("It has 1 to 13 bytes. ");
    return std::nullopt;
  }
  if (!first_) {
    first_ = typed_;
    why_.clear();
    wipe(typed_);
    return std::nullopt;
  }
  if (*first_ != typed_) {
    restart("They differ. ");
    return std::nullopt;
  }
  Secret password(typed_);
  restart({});
  return password;
}

void BindPrompt::restart(std::string why) {
  why_ = std::move(why);
  wipe(typed_);
  if (first_) wipe(*first_);
  first_.reset();
}

}  // namespace kvfob

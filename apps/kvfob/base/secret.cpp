// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/base/secret.h"

#include <string.h>

namespace kvfob {
namespace {

void wipe(std::string& text) {
  // Up to the capacity, as a short string keeps its bytes inside itself when it is moved.
  text.resize(text.capacity());
  explicit_bzero(text.data(), text.size());
  text.clear();
}

}  // namespace

Secret::Secret(Secret&& other) noexcept : text_(std::move(other.text_)) { wipe(other.text_); }

Secret& Secret::operator=(Secret&& other) noexcept {
  std::swap(text_, other.text_);
  wipe(other.text_);
  return *this;
}

Secret::~Secret() { wipe(text_); }

}  // namespace kvfob

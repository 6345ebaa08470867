// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/decode/input.h"

#include <algorithm>

namespace kvfob {
namespace {

constexpr std::size_t kPiece = std::size_t{64} * 1024;

}  // namespace

KVBytes InputBuffer::peek(std::size_t count) {
  while (bytes_.size() - begin_ < count && readMore()) {
  }
  const auto left = KVBytes(bytes_).subspan(begin_);
  return left.first(std::min(count, left.size()));
}

void InputBuffer::skip(std::size_t count) {
  begin_ += count;
  position_ += count;
}

bool InputBuffer::startsWith(std::string_view text) {
  while (this->text().size() < text.size() && text.starts_with(this->text()) && readMore()) {
  }
  return this->text().starts_with(text);
}

std::optional<std::string_view> InputBuffer::line(std::size_t most) {
  std::size_t seen = 0;
  auto end = text().find('\n');
  while (end == std::string_view::npos && text().size() <= most) {
    seen = text().size();
    if (!readMore()) break;
    end = text().find('\n', seen);
  }
  const auto all = text();
  if (all.empty()) return std::nullopt;
  const auto whole = std::min(end, all.size());
  const auto taken = std::min(whole, most);
  skip(taken == end ? taken + 1 : taken);
  return all.substr(0, taken);
}

// What was taken makes room.
bool InputBuffer::readMore() {
  bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(begin_));
  begin_ = 0;
  const auto size = bytes_.size();
  bytes_.resize(size + kPiece);
  const auto count = input_.read(std::span(bytes_).subspan(size));
  bytes_.resize(size + count);
  return count > 0;
}

std::string_view InputBuffer::text() const {
  return {reinterpret_cast<const char*>(bytes_.data()) + begin_, bytes_.size() - begin_};
}

}  // namespace kvfob

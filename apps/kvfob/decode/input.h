// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Input that is read as it comes and never held as a whole.
#ifndef APPS_KVFOB_DECODE_INPUT_H
#define APPS_KVFOB_DECODE_INPUT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "KVFobLink/KVTypes.h"

namespace kvfob {

/// Where bytes come from.
class Input {
 public:
  virtual ~Input() = default;

  /// Puts some bytes into the room, which is not empty, and returns how many; 0 once no more come.
  virtual std::size_t read(std::span<std::uint8_t> room) = 0;
};

/// Reads ahead of what is looked at, by no more than a piece. What it returns is there until the
/// next call.
class InputBuffer {
 public:
  explicit InputBuffer(Input& input) : input_(input) {}

  /// The next `count` bytes; fewer at the end of the input.
  KVBytes peek(std::size_t count);
  void skip(std::size_t count);

  /// Whether the input goes on with this. Reads no further than it takes to know.
  bool startsWith(std::string_view text);

  /// Takes a line, without its end; nothing at the end of the input. A line of more than `most`
  /// bytes comes cut, and the rest of it as the next one.
  std::optional<std::string_view> line(std::size_t most);

  /// How many bytes were taken.
  std::uint64_t position() const { return position_; }

 private:
  bool readMore();
  std::string_view text() const;

  Input& input_;
  std::vector<std::uint8_t> bytes_;
  std::size_t begin_ = 0;
  std::uint64_t position_ = 0;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_DECODE_INPUT_H

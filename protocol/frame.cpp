// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "protocol/frame.h"

#include <algorithm>

#include "protocol/block.h"

namespace kv {
namespace {

constexpr std::size_t kTypeOffset = 0;
constexpr std::size_t kLengthOffset = 1;
constexpr std::size_t kCodeOffset = 2;
constexpr std::size_t kHeaderSize = 3;
static_assert(kHeaderSize + kMostPayload == kBlockSize);

}  // namespace

std::optional<Frame> Frame::read(KVBytes block) {
  if (block.size() != kBlockSize) return std::nullopt;
  const std::size_t length = block[kLengthOffset];  // of the code and the payload
  if (length < 1 || length > kMostPayload + 1) return std::nullopt;
  return Frame{block[kTypeOffset], block[kCodeOffset], block.subspan(kHeaderSize, length - 1)};
}

KVData commandFrame(std::uint64_t code, KVBytes payload, KVRandom& random, KVLog& log) {
  if (payload.empty()) {
    log.write("Something wrong about appended data.");
    return {};
  }
  if (payload.size() > kMostPayload) return {};
  KVData block(kBlockSize);
  block[kTypeOffset] = static_cast<std::uint8_t>(FrameType::Command);
  block[kLengthOffset] = static_cast<std::uint8_t>(payload.size() + 1);
  block[kCodeOffset] = static_cast<std::uint8_t>(code & 0xFFU);
  std::ranges::copy(payload, block.begin() + kHeaderSize);
  random.fill(std::span(block).subspan(kHeaderSize + payload.size()));
  return block;
}

}  // namespace kv

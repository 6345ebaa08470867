// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Command frames: what is built can be taken apart, and any bytes can.
#include "KVFobLink/KVCommandInter.h"
#include "KVFobLink/KVDeviceInfo.h"
#include "fuzz/input.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using kvfuzz::require;
  kvfuzz::Input input(data, size);
  const auto command = input.ConsumeIntegral<std::uint64_t>();
  const KVData payload = kvfuzz::takeBytes(input, 20);
  auto frame = KVCommandInter::getCommandData(command, payload);
  require(frame.has_value() == (!payload.empty() && payload.size() <= 13), "what can be sent");
  if (frame) {
    require(frame->size() == 16 && frame->front() == 0, "a block of its own type");
    frame->front() = 1;  // as if a tag answered with it
    bool called = false;
    KVCommandInter::interCommandData(
        frame, [&](std::int64_t code, std::int64_t second, const std::optional<KVData>& value) {
          called = true;
          require(code == static_cast<std::int64_t>(command & 0xFFU) && second == 0, "the code");
          require(value == payload, "the payload");
        });
    require(called, "an answer is reported");
  }

  const auto bytes = input.ConsumeRemainingBytes<std::uint8_t>();
  int calls = 0;
  KVCommandInter::interCommandData(
      bytes, [&](std::int64_t code, std::int64_t second, const std::optional<KVData>& value) {
        ++calls;
        require(code == 0 || second == 0, "one of the two codes");
        require(!value || value->size() <= 13, "no payload longer than a frame's");
      });
  require(calls <= 1, "at most one report");
  if (bytes.size() >= 2) {
    dev_info_t info{};
    dev_info_decode(bytes.data(), &info);
    require((info.flag_b0 | info.flag_b1 | info.flag_b2 | info.flag_b3 | info.flag_b4 |
             info.flag_b5) <= 1,
            "flags");
  }
  return 0;
}

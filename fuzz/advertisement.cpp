// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Service data off the air: accepted frames are read as they were written, and nothing else is.
#include <array>
#include <string>

#include "KVFobLink/KVUtils.h"
#include "fuzz/input.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using kvfuzz::require;
  const KVBytes frame(data, size);
  int calls = 0;
  KVUtils::validateAdv(
      frame, -60,
      [&](bool valid, std::int64_t battery, const std::optional<std::string>& mac, std::int64_t tx,
          std::optional<std::int64_t> rssi, std::int64_t model) {
        ++calls;
        const bool ours = (size == 10 || size == 11) && frame[0] == 0xA1 &&
                          (frame[1] == 0x0B || frame[1] == 0x0C);
        require(valid == ours, "only a tag's frame is accepted");
        if (!valid) {
          require(battery == -1 && !mac && tx == -1 && rssi == -100 && model == -1, "a rejection");
          return;
        }
        std::array<char, 13> text{};
        std::snprintf(text.data(), text.size(), "%02x%02x%02x%02x%02x%02x", frame[8], frame[7],
                      frame[6], frame[5], frame[4], frame[3]);
        require(mac == text.data() && battery == frame[2], "address and battery");
        require((tx & 0xFF) == frame[9] && tx >= -128 && tx <= 127, "transmit power");
        require(model == (size == 11 ? frame[10] : -1) && rssi == -60, "model and signal strength");
      });
  require(calls == 1, "one report for each frame");
  return 0;
}

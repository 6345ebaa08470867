// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Any text as pairs of digits: never fails, and gives back what was written.
#include <algorithm>
#include <string>

#include "KVFobLink/KVCommonTool.h"
#include "fuzz/input.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using kvfuzz::require;
  const std::string text(reinterpret_cast<const char*>(data), size);
  const KVData bytes = KVCommonTool::dataFromHexString(text);
  const bool ascii = std::all_of(text.begin(), text.end(), [](char c) { return c >= 0; });
  if (ascii) {
    const auto spaces = static_cast<std::size_t>(std::count(text.begin(), text.end(), ' '));
    require(bytes.size() == (text.size() - spaces) / 2, "a byte for each pair");
  }
  std::string spaced;
  for (const char c : text) spaced += {c, ' '};
  if (ascii) require(KVCommonTool::dataFromHexString(spaced) == bytes, "spaces do not count");

  std::string digits;
  for (std::size_t i = 0; i < size; ++i) {
    digits += "0123456789abcdef"[data[i] >> 4U];
    digits += "0123456789ABCDEF"[data[i] & 15U];
  }
  require(KVCommonTool::dataFromHexString(digits) == KVData(data, data + size), "what was written");
  return 0;
}

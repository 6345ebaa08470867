// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Captures and text files that nobody vouches for.
#include <algorithm>
#include <sstream>
#include <string>

#include "apps/kvfob/decode/decode.h"
#include "fuzz/input.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using kvfuzz::require;
  const std::string file(reinterpret_cast<const char*>(data), size);
  std::string printed[2];
  for (const bool showSecrets : {false, true}) {
    std::istringstream in(file);
    std::ostringstream out;
    std::ostringstream err;
    kvfob::Console console(out, err, /*color=*/false, /*live=*/false);
    kvfob::decode("-", in, showSecrets, console);
    printed[showSecrets ? 1 : 0] = out.str();
    require(std::none_of(printed[0].begin(), printed[0].end(),
                         [](char c) { return static_cast<unsigned char>(c) < ' ' && c != '\n'; }),
            "no control characters for the terminal");
  }
  const auto lines = [](const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
  };
  require(lines(printed[0]) == lines(printed[1]), "secrets are masked, not left out");
  return 0;
}

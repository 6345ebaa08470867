// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Captures and text files that nobody vouches for.
#include <algorithm>
#include <sstream>
#include <string>
#include <utility>

#include "apps/kvfob/decode/decode.h"
#include "fuzz/input.h"

namespace {

// In pieces of a size that falls between packets and inside them.
class Pieces final : public kvfob::Input {
 public:
  explicit Pieces(KVBytes bytes) : left_(bytes) {}

  std::size_t read(std::span<std::uint8_t> room) override {
    const auto size = std::min({left_.size(), room.size(), std::size_t{61}});
    std::copy_n(left_.begin(), size, room.begin());
    left_ = left_.subspan(size);
    return size;
  }

 private:
  KVBytes left_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using kvfuzz::require;
  const auto decoded = [&](bool showSecrets, bool json) {
    Pieces input({data, size});
    std::ostringstream out;
    std::ostringstream err;
    kvfob::Console console(out, err, /*color=*/false, /*live=*/false);
    kvfob::DecodeCounts counts;
    kvfob::decodeInput(input, {showSecrets, json}, console, counts);
    auto text = std::move(out).str();
    require(std::none_of(text.begin(), text.end(),
                         [](char c) { return static_cast<unsigned char>(c) < ' ' && c != '\n'; }),
            "no control characters for the terminal");
    return text;
  };
  const auto lines = [](const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
  };
  const auto masked = lines(decoded(false, false));
  require(masked == lines(decoded(true, false)), "secrets are masked, not left out");
  require(masked == lines(decoded(false, true)), "each form tells the same");
  return 0;
}

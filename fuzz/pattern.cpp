// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Any pattern on any text: the answer is ICU's, or it comes in time.
#include <unicode/regex.h>

#include <chrono>
#include <string>

#include "KVFobLink/KVCommonTool.h"
#include "fuzz/input.h"

namespace {

constexpr std::chrono::seconds kPromised{1};
constexpr std::int32_t kSteps =
    10;  // of ICU's own limit, a few milliseconds: it is decided by then

// Nothing when ICU does not decide soon.
std::optional<bool> matchesByIcu(const std::string& text, const std::string& pattern) {
  UErrorCode status = U_ZERO_ERROR;
  icu::RegexMatcher matcher(icu::UnicodeString::fromUTF8(pattern), 0, status);
  if (U_FAILURE(status)) return false;
  const auto input = icu::UnicodeString::fromUTF8(text);
  matcher.reset(input);
  matcher.setTimeLimit(kSteps, status);
  matcher.setStackLimit(1 << 20, status);
  const bool matches = matcher.matches(status);
  if (U_FAILURE(status)) return std::nullopt;
  return matches;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using kvfuzz::require;
  kvfuzz::Input input(data, size);
  const std::string pattern = input.ConsumeRandomLengthString(64);
  const std::string text = input.ConsumeRemainingBytesAsString();
  const auto begun = std::chrono::steady_clock::now();
  const bool matches = KVCommonTool::validateString(text, pattern);
  const auto first = KVCommonTool::validatedString(text, pattern);
  require(std::chrono::steady_clock::now() - begun < 2 * kPromised, "an answer within a second");
  if (const auto right = matchesByIcu(text, pattern)) require(matches == *right, "ICU's answer");
  if (matches) require(first.has_value(), "a text that matches holds a match");
  require(!KVCommonTool::validateString(std::nullopt, pattern), "an absent text matches nothing");
  return 0;
}

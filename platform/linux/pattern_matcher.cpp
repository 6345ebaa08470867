// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/pattern_matcher.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <chrono>
#include <limits>
#include <optional>

namespace kv {
namespace {

using Clock = std::chrono::steady_clock;

// Well below the second that is promised: a caller waits for it.
constexpr std::chrono::milliseconds kTimeLimit{400};
// For backtracking, in bytes of heap.
constexpr std::int32_t kStackLimit = 4 << 20;
// ICU counts in 32 bits.
constexpr std::size_t kLongestText = std::numeric_limits<std::int32_t>::max() / 2;

// A matcher that has worked on a longer text may hold much memory, and is not kept.
constexpr std::size_t kLongestKept = 1024;

icu::UnicodeString toUtf16(std::string_view utf8) {
  return icu::UnicodeString::fromUTF8(
      icu::StringPiece(utf8.data(), static_cast<std::int32_t>(utf8.size())));
}

// ICU's own time limit counts steps, so a text with many starts escapes it; the clock does not. It
// is first read when ICU first asks, after thousands of steps: most matches are over by then.
class Deadline {
 public:
  bool goesOn() const {
    const auto now = Clock::now();
    if (!at_) at_ = now + kTimeLimit;
    return now < *at_;
  }
  static UBool whileMatching(const void* context, std::int32_t) {
    return static_cast<const Deadline*>(context)->goesOn();
  }
  static UBool whileFinding(const void* context, std::int64_t) {
    return static_cast<const Deadline*>(context)->goesOn();
  }

 private:
  mutable std::optional<Clock::time_point> at_;  // ICU hands a context on as constant
};

}  // namespace

class PatternMatcher::Compiled {
 public:
  Compiled(std::string_view pattern, bool ignoreCase) {
    if (pattern.size() > kLongestText) return;
    UErrorCode status = U_ZERO_ERROR;
    const std::uint32_t flags = ignoreCase ? UREGEX_CASE_INSENSITIVE : 0;
    pattern_.reset(icu::RegexPattern::compile(toUtf16(pattern), flags, status));
    if (U_FAILURE(status) != 0) pattern_.reset();
  }

  // Calls `match` with a matcher on the text, which stops in time, and a status. What `match`
  // returns counts unless it failed.
  template <typename Match>
  bool run(std::string_view text, Match match) {
    if (!pattern_ || text.size() > kLongestText) return false;
    const icu::UnicodeString input = toUtf16(text);
    const Deadline deadline;
    UErrorCode status = U_ZERO_ERROR;
    auto matcher = take(status);
    if (U_FAILURE(status) != 0) return false;
    matcher->reset(input);
    matcher->setMatchCallback(Deadline::whileMatching, &deadline, status);
    matcher->setFindProgressCallback(Deadline::whileFinding, &deadline, status);
    const bool found = match(*matcher, status) && U_SUCCESS(status) != 0;
    if (text.size() <= kLongestKept) giveBack(std::move(matcher));
    return found;
  }

 private:
  using MatcherPtr = std::unique_ptr<icu::RegexMatcher>;

  MatcherPtr take(UErrorCode& status) {
    {
      const std::lock_guard lock(mutex_);
      if (idle_) return std::move(idle_);
    }
    MatcherPtr fresh(pattern_->matcher(status));
    if (U_SUCCESS(status) != 0) fresh->setStackLimit(kStackLimit, status);
    return fresh;
  }
  void giveBack(MatcherPtr matcher) {
    const std::lock_guard lock(mutex_);
    idle_ = std::move(matcher);
  }

  std::unique_ptr<const icu::RegexPattern> pattern_;  // null if it is invalid
  std::mutex mutex_;
  MatcherPtr idle_;  // to make one costs as much as a short match
};

PatternMatcher::PatternMatcher() = default;
PatternMatcher::~PatternMatcher() = default;

bool PatternMatcher::fullMatch(std::string_view text, std::string_view pattern) {
  return compiled(pattern, /*ignoreCase=*/false)->run(text, [](auto& matcher, auto& status) {
    return matcher.matches(status) != 0;
  });
}

std::optional<std::string> PatternMatcher::firstMatch(std::string_view text,
                                                      std::string_view pattern) {
  std::string match;
  const bool found =
      compiled(pattern, /*ignoreCase=*/true)->run(text, [&match](auto& matcher, auto& status) {
        if (matcher.find(status) == 0) return false;
        matcher.group(status).toUTF8String(match);
        return true;
      });
  return found ? std::optional(std::move(match)) : std::nullopt;
}

std::size_t PatternMatcher::cached() const {
  const std::lock_guard lock(mutex_);
  return recent_.size();
}

PatternMatcher::CompiledPtr PatternMatcher::compiled(std::string_view pattern, bool ignoreCase) {
  auto& kept = kept_[ignoreCase ? 1 : 0];
  {
    const std::lock_guard lock(mutex_);
    if (const auto found = kept.find(pattern); found != kept.end()) {
      recent_.splice(recent_.begin(), recent_, found->second);
      return recent_.front().compiled;
    }
  }
  auto fresh = std::make_shared<Compiled>(pattern, ignoreCase);
  if (pattern.size() > kLongestCached) return fresh;
  const std::lock_guard lock(mutex_);
  if (kept.contains(pattern)) return fresh;  // another thread was faster
  recent_.push_front({std::string(pattern), ignoreCase, fresh});
  kept.emplace(recent_.front().pattern, recent_.begin());
  if (recent_.size() > kCacheSize) {
    const Slot& oldest = recent_.back();
    kept_[oldest.ignoreCase ? 1 : 0].erase(oldest.pattern);
    recent_.pop_back();
  }
  return fresh;
}

}  // namespace kv

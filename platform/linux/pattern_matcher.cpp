#include "platform/linux/pattern_matcher.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <chrono>
#include <limits>

namespace kv {
namespace {

using Clock = std::chrono::steady_clock;

// Well below the second that is promised: a caller waits for it.
constexpr std::chrono::milliseconds kTimeLimit{400};
// For backtracking, in bytes of heap.
constexpr std::int32_t kStackLimit = 4 << 20;
// ICU counts in 32 bits.
constexpr std::size_t kLongestText = std::numeric_limits<std::int32_t>::max() / 2;

icu::UnicodeString toUtf16(std::string_view utf8) {
  return icu::UnicodeString::fromUTF8(
      icu::StringPiece(utf8.data(), static_cast<std::int32_t>(utf8.size())));
}

/// ICU's own time limit counts steps, so a text with many starts escapes it; the clock does not.
struct Deadline {
  Clock::time_point at = Clock::now() + kTimeLimit;

  static UBool goesOn(const void* context) {
    return Clock::now() < static_cast<const Deadline*>(context)->at;
  }
  static UBool whileMatching(const void* context, std::int32_t) { return goesOn(context); }
  static UBool whileFinding(const void* context, std::int64_t) { return goesOn(context); }
};

/// Makes a matcher on `text` that stops in time; null on failure.
std::unique_ptr<icu::RegexMatcher> makeMatcher(const icu::RegexPattern& pattern,
                                               const icu::UnicodeString& text,
                                               const Deadline& deadline) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> matcher(pattern.matcher(text, status));
  if (U_FAILURE(status) != 0) return nullptr;
  matcher->setStackLimit(kStackLimit, status);
  matcher->setMatchCallback(Deadline::whileMatching, &deadline, status);
  matcher->setFindProgressCallback(Deadline::whileFinding, &deadline, status);
  return U_SUCCESS(status) != 0 ? std::move(matcher) : nullptr;
}

}  // namespace

struct PatternMatcher::Compiled {
  std::unique_ptr<const icu::RegexPattern> pattern;  // null if it is invalid
};

PatternMatcher::PatternMatcher() = default;
PatternMatcher::~PatternMatcher() = default;

bool PatternMatcher::fullMatch(std::string_view text, std::string_view pattern) {
  const auto found = compiled(pattern, /*ignoreCase=*/false);
  if (!found->pattern || text.size() > kLongestText) return false;
  const icu::UnicodeString input = toUtf16(text);
  const Deadline deadline;
  const auto matcher = makeMatcher(*found->pattern, input, deadline);
  UErrorCode status = U_ZERO_ERROR;
  return matcher && matcher->matches(status) != 0 && U_SUCCESS(status) != 0;
}

std::optional<std::string> PatternMatcher::firstMatch(std::string_view text,
                                                      std::string_view pattern) {
  const auto found = compiled(pattern, /*ignoreCase=*/true);
  if (!found->pattern || text.size() > kLongestText) return std::nullopt;
  const icu::UnicodeString input = toUtf16(text);
  const Deadline deadline;
  const auto matcher = makeMatcher(*found->pattern, input, deadline);
  UErrorCode status = U_ZERO_ERROR;
  if (!matcher || matcher->find(status) == 0 || U_FAILURE(status) != 0) return std::nullopt;
  std::string match;
  matcher->group(status).toUTF8String(match);
  return match;
}

std::size_t PatternMatcher::cached() const {
  const std::lock_guard lock(mutex_);
  return recent_.size();
}

PatternMatcher::CompiledPtr PatternMatcher::compiled(std::string_view pattern, bool ignoreCase) {
  std::string key(1, ignoreCase ? 'i' : '=');
  key += pattern;
  {
    const std::lock_guard lock(mutex_);
    if (const auto found = byKey_.find(key); found != byKey_.end()) {
      recent_.splice(recent_.begin(), recent_, found->second);
      return recent_.front().compiled;
    }
  }
  auto fresh = std::make_shared<Compiled>();
  if (pattern.size() <= kLongestText) {
    UErrorCode status = U_ZERO_ERROR;
    const std::uint32_t flags = ignoreCase ? UREGEX_CASE_INSENSITIVE : 0;
    fresh->pattern.reset(icu::RegexPattern::compile(toUtf16(pattern), flags, status));
    if (U_FAILURE(status) != 0) fresh->pattern.reset();
  }
  if (pattern.size() > kLongestCached) return fresh;
  const std::lock_guard lock(mutex_);
  if (byKey_.contains(key)) return fresh;  // another thread was faster
  recent_.push_front({key, fresh});
  byKey_.emplace(std::move(key), recent_.begin());
  if (recent_.size() > kCacheSize) {
    byKey_.erase(recent_.back().key);
    recent_.pop_back();
  }
  return fresh;
}

}  // namespace kv

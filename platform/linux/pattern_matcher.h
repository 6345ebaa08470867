// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef PLATFORM_LINUX_PATTERN_MATCHER_H
#define PLATFORM_LINUX_PATTERN_MATCHER_H

#include <array>
#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "KVFobLink/KVPlatform.h"

namespace kv {

/// ICU's regular expressions. Compiled patterns are kept, each with one matcher: to make them is
/// most of the cost of a call.
class PatternMatcher : public KVPatternMatcher {
 public:
  static constexpr std::size_t kCacheSize = 64;
  /// Longer patterns are compiled each time.
  static constexpr std::size_t kLongestCached = 1024;

  PatternMatcher();
  ~PatternMatcher() override;

  bool fullMatch(std::string_view text, std::string_view pattern) override;
  std::optional<std::string> firstMatch(std::string_view text, std::string_view pattern) override;

  /// How many patterns are kept.
  std::size_t cached() const;

 private:
  class Compiled;
  using CompiledPtr = std::shared_ptr<Compiled>;
  struct Slot {
    std::string pattern;
    bool ignoreCase;
    CompiledPtr compiled;
  };

  CompiledPtr compiled(std::string_view pattern, bool ignoreCase);

  mutable std::mutex mutex_;
  std::list<Slot> recent_;  ///< The latest used first.
  /// Into `recent_`, by pattern; first those that look at case, then those that ignore it.
  std::array<std::unordered_map<std::string_view, std::list<Slot>::iterator>, 2> kept_;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_PATTERN_MATCHER_H

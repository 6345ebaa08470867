// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "platform/linux/pattern_matcher.h"

namespace {

using kv::PatternMatcher;

TEST(PatternMatcherTest, FullMatch) {
  struct Case {
    const char* text;
    const char* pattern;
    bool matches;
  };
  const std::vector<Case> cases = {
      {"abc", "ab", false},
      {"abc", "abc", true},
      {"ABC", "abc", false},
      {"abc", "a|abc", true},  // the match is of the whole, not the first that fits
      {"", "", true},
      {"abc\n", "abc", false},
      {"a\nb", "a.b", false},
      {"a\rb", "a.b", false},
      {"caf\u00e9", "caf.", true},
      {"\U0001F511", ".", true},  // one character, though two UTF-16 units
      {"\u0663", "\\d", true},    // any script's digits
      {"\u00e9", "\\w", true},
      {"\u0416", "\\p{Cyrillic}", true},
      {"ab", "(?<!x)a(?=b)b", true},
      {"aaa", "a{2,3}+", true},
      {"abc", "(?i)ABC", true},
      {"\xff", "\uFFFD", true},
      {"a\xc3", "a\uFFFD", true},
      {"\uFFFD", "\xfe", true},
      {"a", "(", false},
      {"a", "[a", false},
      {"a", "*a", false},
  };
  PatternMatcher matcher;
  for (const Case& c : cases) {
    EXPECT_EQ(matcher.fullMatch(c.text, c.pattern), c.matches) << c.text << " ~ " << c.pattern;
    EXPECT_EQ(matcher.fullMatch(c.text, c.pattern), c.matches) << "kept: " << c.pattern;
  }
  using std::string_view_literals::operator""sv;
  EXPECT_TRUE(matcher.fullMatch("a\0b"sv, "a.b"));
  EXPECT_FALSE(matcher.fullMatch("a\0b"sv, "a"));
}

TEST(PatternMatcherTest, FirstMatch) {
  struct Case {
    const char* text;
    const char* pattern;
    std::optional<std::string> match;
  };
  const std::vector<Case> cases = {
      {"xxABCyy", "abc", "ABC"},
      {"a1b22", "\\d+", "1"},
      {"a", "(", std::nullopt},
      {"abc", "x", std::nullopt},
      {"abc", "x*", ""},
      {"\u00c9t\u00e9", "\u00e9T", "\u00c9t"},  // case is that of Unicode
      {"\u039f\u0394\u039f\u03a3", "\u03bf\u03c2", "\u039f\u03a3"},
      {"one two", "(\\w+) (\\w+)", "one two"},
      {"x\xff\xffy", "[^x]+", "\uFFFD\uFFFDy"},
  };
  PatternMatcher matcher;
  for (const Case& c : cases) {
    EXPECT_EQ(matcher.firstMatch(c.text, c.pattern), c.match) << c.text << " ~ " << c.pattern;
  }
  EXPECT_FALSE(matcher.fullMatch("ABC", "abc"));  // a pattern kept for one mode is not the other's
}

TEST(PatternMatcherTest, RunawayPatternsEndInTime) {
  const std::string letters(30, 'a');
  const std::string many(400'000, 'a');
  std::string starts;
  for (int i = 0; i < 200; ++i) starts += letters + "!";
  const auto begin = std::chrono::steady_clock::now();
  PatternMatcher matcher;
  EXPECT_FALSE(matcher.fullMatch(letters + "!", "(a+)+$"));
  EXPECT_EQ(matcher.firstMatch(starts, "(a+)+$"), std::nullopt);  // each start alone is a runaway
  EXPECT_EQ(matcher.firstMatch(many, "[a]*b"), std::nullopt);     // quadratic, one step at a time
  matcher.fullMatch(many, "(a|b)*c");                             // deep
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
}

TEST(PatternMatcherTest, KeepsABoundedNumberOfPatterns) {
  PatternMatcher matcher;
  for (std::size_t i = 0; i < 3 * PatternMatcher::kCacheSize; ++i) {
    const std::string text = "x" + std::to_string(i);
    EXPECT_TRUE(matcher.fullMatch(text, text));
    EXPECT_EQ(matcher.firstMatch("-" + text, text), text);
  }
  EXPECT_EQ(matcher.cached(), PatternMatcher::kCacheSize);
  EXPECT_TRUE(matcher.fullMatch("x0", "x0"));
  EXPECT_EQ(matcher.firstMatch("-x0", "x0"), "x0");

  PatternMatcher other;
  const std::string huge(PatternMatcher::kLongestCached + 1, 'a');
  EXPECT_TRUE(other.fullMatch(huge, huge));
  EXPECT_EQ(other.cached(), 0U);
  for (int times = 0; times < 2; ++times) {
    EXPECT_TRUE(other.fullMatch(huge.substr(1), huge.substr(1)));
    EXPECT_EQ(other.cached(), 1U);
  }
}

TEST(PatternMatcherTest, ThreadsShareThePatterns) {
  PatternMatcher matcher;
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 300; ++i) {
        const std::string number = std::to_string(i % 80);
        EXPECT_TRUE(matcher.fullMatch("tag" + number, "[a-z]+" + number));
        EXPECT_EQ(matcher.firstMatch("-" + std::to_string(t) + "-", "\\d"), std::to_string(t));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace

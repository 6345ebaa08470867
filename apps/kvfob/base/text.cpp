// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/base/text.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "KVFobLink/KVTrackerTypes.h"
#include "protocol/hex.h"

namespace kvfob {
namespace {

constexpr std::size_t kAddressDigits = 12;

// The spellings of an address: what stands between how many digits.
constexpr std::array<std::pair<char, std::size_t>, 4> kSpellings{
    {{'\0', kAddressDigits}, {':', 2}, {'-', 2}, {'.', 4}}};

constexpr std::array<std::pair<std::string_view, std::uint64_t>, 3> kLevels{{
    {"far", KVDistanceFar},
    {"middle", KVDistanceMiddle},
    {"near", KVDistanceNear},
}};

std::optional<char> hexDigit(char c) {
  if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')) return c;
  if (c >= 'A' && c <= 'F') return static_cast<char>(c - 'A' + 'a');
  return std::nullopt;
}

std::optional<std::string> spelled(std::string_view text, char separator, std::size_t group) {
  if (text.size() != kAddressDigits + kAddressDigits / group - 1) return std::nullopt;
  std::string address;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i % (group + 1) == group) {
      if (text[i] != separator) return std::nullopt;
      continue;
    }
    const auto digit = hexDigit(text[i]);
    if (!digit) return std::nullopt;
    address += *digit;
  }
  return address;
}

std::string formatTime(std::chrono::system_clock::time_point time, const char* format,
                       tm* (*breakDown)(const time_t*, tm*)) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(time - seconds);
  const time_t whole = std::chrono::system_clock::to_time_t(seconds);
  tm parts{};
  breakDown(&whole, &parts);
  std::array<char, 40> date{};
  std::strftime(date.data(), date.size(), format, &parts);
  std::array<char, 8> fraction{};
  std::snprintf(fraction.data(), fraction.size(), ".%03d", static_cast<int>(millis.count()));
  return std::string(date.data()) + fraction.data();
}

}  // namespace

std::optional<std::string> parseAddress(std::string_view text) {
  for (const auto& [separator, group] : kSpellings) {
    if (auto address = spelled(text, separator, group)) return address;
  }
  return std::nullopt;
}

std::optional<std::uint64_t> parseNumber(std::string_view text, std::uint64_t least,
                                         std::uint64_t most) {
  std::uint64_t value = 0;
  const auto* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  if (value < least || value > most) return std::nullopt;
  return value;
}

std::optional<std::chrono::milliseconds> parseDuration(std::string_view text) {
  // strtod also reads signs, blanks, exponents, hexadecimal and "inf".
  const auto digits = text.find_first_not_of("0123456789.");
  const std::string number(text.substr(0, digits));
  const auto unit = digits == std::string_view::npos ? "s" : text.substr(digits);
  if (number.empty()) return std::nullopt;
  char* end = nullptr;
  const double value = std::strtod(number.c_str(), &end);
  if (*end != '\0') return std::nullopt;
  double millis = 0;
  if (unit == "ms") {
    millis = value;
  } else if (unit == "s") {
    millis = value * 1e3;
  } else if (unit == "m") {
    millis = value * 60e3;
  } else if (unit == "h") {
    millis = value * 3600e3;
  } else {
    return std::nullopt;
  }
  constexpr double kMost = 7 * 24 * 3600e3;
  if (!(millis >= 1) || millis > kMost) return std::nullopt;
  return std::chrono::milliseconds(std::llround(millis));
}

std::string durationText(std::chrono::milliseconds time) {
  const auto millis = time.count();
  return millis % 1000 == 0 ? std::to_string(millis / 1000) + "s" : std::to_string(millis) + "ms";
}

std::optional<std::uint64_t> parseLevel(std::string_view text) {
  for (const auto& [name, level] : kLevels) {
    if (name == text) return level;
  }
  return std::nullopt;
}

std::string_view levelName(std::uint64_t level) {
  for (const auto& [name, value] : kLevels) {
    if (value == level) return name;
  }
  return "unknown";
}

std::string isoTime(std::chrono::system_clock::time_point time) {
  return formatTime(time, "%Y-%m-%dT%H:%M:%S", gmtime_r) + "Z";
}

std::string clockTime(std::chrono::system_clock::time_point time) {
  return formatTime(time, "%H:%M:%S", localtime_r);
}

std::string jsonText(std::string_view text) {
  std::string json = "\"";
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x20) {
      std::array<char, 8> escaped{};
      std::snprintf(escaped.data(), escaped.size(), "\\u%04x", static_cast<unsigned>(c));
      json += escaped.data();
      continue;
    }
    if (c == '"' || c == '\\') json += '\\';
    json += c;
  }
  return json + "\"";
}

std::string hex(KVBytes bytes, bool spaced) {
  std::string text;
  for (const auto byte : bytes) {
    if (spaced && !text.empty()) text += ' ';
    text += kv::hexText({&byte, 1});
  }
  return text;
}

}  // namespace kvfob

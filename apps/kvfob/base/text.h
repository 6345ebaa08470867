// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Reading what the user writes, and writing what the user reads.
#ifndef APPS_KVFOB_BASE_TEXT_H
#define APPS_KVFOB_BASE_TEXT_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KVFobLink/KVTypes.h"

namespace kvfob {

/// A tag's address as the library writes it, 12 lower-case hexadecimal digits, from those digits in
/// either case: on their own, as a1:b2:c3:d4:e5:f6, a1-b2-c3-d4-e5-f6 or a1b2.c3d4.e5f6. Anything
/// else gives nothing.
std::optional<std::string> parseAddress(std::string_view text);

/// A whole number in decimal digits, from `least` to `most`. Anything else gives nothing.
std::optional<std::uint64_t> parseNumber(std::string_view text, std::uint64_t least,
                                         std::uint64_t most);

/// A duration such as "10s", "1.5m", "500ms", "2h" or "10" (seconds): above zero, at most a week.
std::optional<std::chrono::milliseconds> parseDuration(std::string_view text);

/// The reverse, "90s" or "1500ms".
std::string durationText(std::chrono::milliseconds time);

/// "far", "middle" or "near" as a `KVDistance`.
std::optional<std::uint64_t> parseLevel(std::string_view text);

/// The reverse.
std::string_view levelName(std::uint64_t level);

/// "2026-01-31T23:59:59.123Z".
std::string isoTime(std::chrono::system_clock::time_point time);

/// "23:59:59.123", in the user's own time zone.
std::string clockTime(std::chrono::system_clock::time_point time);

/// A JSON string, with its quotation marks.
std::string jsonText(std::string_view text);

/// Two lower-case digits a byte, with a space after every byte but the last when `spaced`.
std::string hex(KVBytes bytes, bool spaced = false);

}  // namespace kvfob

#endif  // APPS_KVFOB_BASE_TEXT_H

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
/// either case, with a colon after every second one or none. Anything else gives nothing.
std::optional<std::string> parseAddress(std::string_view text);

/// A duration such as "10s", "1.5m", "500ms", "2h" or "10" (seconds): above zero, at most a week.
std::optional<std::chrono::milliseconds> parseDuration(std::string_view text);

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

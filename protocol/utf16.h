// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// UTF-16 for the rules that count in 16-bit units.
#ifndef PROTOCOL_UTF16_H
#define PROTOCOL_UTF16_H

#include <string>
#include <string_view>

namespace kv {

/// The UTF-16 form of a UTF-8 text. Each maximal part of a malformed sequence becomes one U+FFFD
/// (The Unicode Standard, 3.9, "U+FFFD Substitution of Maximal Subparts").
std::u16string toUtf16(std::string_view text);

}  // namespace kv

#endif  // PROTOCOL_UTF16_H

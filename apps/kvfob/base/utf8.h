// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Text in UTF-8 that comes from a user, a file or the air.
#ifndef APPS_KVFOB_BASE_UTF8_H
#define APPS_KVFOB_BASE_UTF8_H

#include <string>
#include <string_view>

namespace kvfob {

/// Whether a terminal shows the text as it is: valid UTF-8 without control characters, and without
/// those that turn the direction of what follows, or of which nothing is seen.
bool isPlainText(std::string_view text);

/// The text with "\xNN" for each byte that is not plain text.
std::string plainText(std::string_view text);

}  // namespace kvfob

#endif  // APPS_KVFOB_BASE_UTF8_H

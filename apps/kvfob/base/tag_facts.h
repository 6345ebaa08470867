// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What the library promises of tags, as far as the program has to know.
#ifndef APPS_KVFOB_BASE_TAG_FACTS_H
#define APPS_KVFOB_BASE_TAG_FACTS_H

#include <cstdint>

namespace kvfob {

/// The longest loss delay that a tag takes, in its own unit.
inline constexpr std::int64_t kDelayMost = 7000;

/// The library's code for a bind request that the tag did not answer.
inline constexpr std::int64_t kBindTimedOut = 400;

}  // namespace kvfob

#endif  // APPS_KVFOB_BASE_TAG_FACTS_H

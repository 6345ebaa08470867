// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_CLI_SUGGEST_H
#define APPS_KVFOB_CLI_SUGGEST_H

#include <string>
#include <string_view>
#include <vector>

namespace kvfob {

/// `; did you mean "ring"?` with up to two of the words, those that a slip of the finger or two, or
/// leaving off their end, makes of `typed`; empty when there is none.
std::string didYouMean(std::string_view typed, const std::vector<std::string>& words);

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_SUGGEST_H

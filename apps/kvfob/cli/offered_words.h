// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Completion of a command line that is being typed into the program itself.
#ifndef APPS_KVFOB_CLI_OFFERED_WORDS_H
#define APPS_KVFOB_CLI_OFFERED_WORDS_H

#include <string>
#include <vector>

namespace kvfob {

/// What the command line takes where the last of these words is: commands, a command's options, and
/// the choices of an option or a positional. Tags and files are not among them.
std::vector<std::string> offeredWords(const std::vector<std::string>& words);

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_OFFERED_WORDS_H

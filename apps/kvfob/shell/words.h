// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A line as the words that a command line is made of.
#ifndef APPS_KVFOB_SHELL_WORDS_H
#define APPS_KVFOB_SHELL_WORDS_H

#include <string>
#include <string_view>
#include <vector>

namespace kvfob {

struct Words {
  std::vector<std::string> words;
  bool open = false;  ///< A quotation mark has no second one.
};

/// Words have blanks between them. Within quotation marks of either kind, and after a backslash, a
/// blank is a part of the word.
Words splitWords(std::string_view line);

/// The word as it is to be typed.
std::string quoteWord(const std::string& word);

}  // namespace kvfob

#endif  // APPS_KVFOB_SHELL_WORDS_H

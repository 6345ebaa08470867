// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/shell/words.h"

namespace kvfob {

Words splitWords(std::string_view line) {
  Words result;
  bool inWord = false;
  char quote = '\0';
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    const bool blank = c == ' ' || c == '\t';
    if (quote == '\0' && blank) {
      inWord = false;
      continue;
    }
    if (!inWord) result.words.emplace_back();
    inWord = true;
    if (quote != '\0' ? c == quote : c == '"' || c == '\'') {
      quote = quote != '\0' ? '\0' : c;
    } else if (c == '\\' && quote != '\'' && i + 1 < line.size()) {
      result.words.back() += line[++i];
    } else {
      result.words.back() += c;
    }
  }
  result.open = quote != '\0';
  return result;
}

std::string quoteWord(const std::string& word) {
  std::string result;
  for (const char c : word) {
    if (c == ' ' || c == '\t' || c == '"' || c == '\'' || c == '\\') result += '\\';
    result += c;
  }
  return result;
}

}  // namespace kvfob

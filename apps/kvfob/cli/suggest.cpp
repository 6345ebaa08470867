// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/suggest.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace kvfob {
namespace {

// How many letters were left out, added, mistaken or swapped with their neighbour.
std::size_t slips(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> table(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      auto& least = table[i][j];
      least = std::max(i, j);
      if (i == 0 || j == 0) continue;
      const std::size_t mistaken = a[i - 1] == b[j - 1] ? 0 : 1;
      least = std::min({table[i - 1][j] + 1, table[i][j - 1] + 1, table[i - 1][j - 1] + mistaken});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) least = std::min(least, table[i - 2][j - 2] + 1);
    }
  }
  return table[a.size()][b.size()];
}

}  // namespace

std::string didYouMean(std::string_view typed, const std::vector<std::string>& words) {
  constexpr std::size_t kSlipsMost = 2;
  constexpr std::size_t kWordsMost = 2;
  constexpr std::size_t kLongest = 40;  // the table grows with the square
  const auto letters = typed.substr(std::min(typed.find_first_not_of('-'), typed.size()));
  if (letters.size() < 2 || letters.size() > kLongest) return {};
  std::vector<std::pair<std::size_t, std::string>> near;
  for (const auto& word : words) {
    const auto distance = word.starts_with(typed) ? 1 : slips(typed, word);
    if (distance <= kSlipsMost && distance < letters.size()) near.emplace_back(distance, word);
  }
  std::sort(near.begin(), near.end());
  std::string text;
  for (std::size_t i = 0; i < std::min(near.size(), kWordsMost); ++i) {
    text += (i == 0 ? "; did you mean \"" : " or \"") + near[i].second + "\"";
  }
  return text.empty() ? text : text + "?";
}

}  // namespace kvfob

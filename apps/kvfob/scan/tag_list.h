// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The tags that a scan has heard, and which of them is selected.
#ifndef APPS_KVFOB_SCAN_TAG_LIST_H
#define APPS_KVFOB_SCAN_TAG_LIST_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "KVFobLink/KVTracker.h"
#include "apps/kvfob/scan/listing.h"
#include "apps/kvfob/terminal/plot.h"

namespace kvfob {

/// Fills in the user's name for a tag, and whether it is bound.
using Recall = std::function<void(TagRow& row)>;

/// A tag with what it was before.
struct HeardTag {
  TagRow row = {};
  std::optional<std::chrono::system_clock::time_point> firstHeard = {};
  std::vector<Sample> samples =
      {};  ///< Its signal: at most one a second, and a few minutes of them.
};

/// Once heard, a tag stays; the library forgets all of them whenever a scan begins.
class TagList {
 public:
  explicit TagList(Recall recall) : recall_(std::move(recall)) {}

  /// Takes in a tag as it is now.
  ///
  /// @param at  On the clock of the samples.
  void take(const KVTracker& tracker, std::chrono::milliseconds at);

  /// Asks for all names anew.
  void recall();

  std::size_t size() const { return tags_.size(); }
  const HeardTag* find(const std::string& address) const;

  /// Chooses what `shown` gives, and in what order: the tags that match `filter`.
  void arrange(SortBy order, const std::string& filter);
  const std::vector<const HeardTag*>& shown() const { return shown_; }

  /// The place of the selected tag in `shown`: once selected, a tag stays so wherever it goes.
  /// Until then it is the first place. Nothing is selected where nothing is shown.
  std::size_t selected() const { return selected_; }
  const HeardTag* selectedTag() const;

  /// Selects the tag in that place of `shown`, or the nearest to it.
  void select(std::size_t place);
  void move(std::ptrdiff_t places);

 private:
  void findSelected();

  const Recall recall_;
  std::unordered_map<std::string, HeardTag> tags_;  // their places in memory stay the same
  std::vector<const HeardTag*> shown_;
  std::string address_;  // of the selected one; empty before a choice was made
  std::size_t selected_ = 0;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_SCAN_TAG_LIST_H

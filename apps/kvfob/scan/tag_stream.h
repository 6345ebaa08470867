// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Which news of the tags are worth a line.
#ifndef APPS_KVFOB_SCAN_TAG_STREAM_H
#define APPS_KVFOB_SCAN_TAG_STREAM_H

#include <chrono>
#include <string>
#include <unordered_map>

#include "apps/kvfob/scan/listing.h"

namespace kvfob {

/// A tag is news when it is first heard, and whenever its battery, model, name or binding are
/// others than was told. Otherwise it is news a second later at the earliest: when its distance is
/// another, its signal by 3 dB, or when it is heard again after 10 seconds of silence.
class TagStream {
 public:
  /// Whether the tag is news, which is then told.
  ///
  /// @param at  On a clock that nobody sets.
  bool news(const TagRow& row, std::chrono::milliseconds at);

  bool empty() const { return told_.empty(); }

 private:
  struct Told {
    TagRow row;
    std::chrono::milliseconds at{0};
    std::optional<std::chrono::system_clock::time_point> lastAdvertised;  // told or not
    bool back = false;  // heard again after a silence
  };

  std::unordered_map<std::string, Told> told_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_SCAN_TAG_STREAM_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/tag_list.h"

#include <algorithm>

namespace kvfob {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kSampleEvery = 1s;
// More than a terminal has columns.
constexpr std::size_t kSamplesMost = 300;

void sample(HeardTag& tag, std::chrono::milliseconds at) {
  auto& samples = tag.samples;
  if (!tag.row.rssi || (!samples.empty() && at - samples.back().at < kSampleEvery)) return;
  if (samples.size() == kSamplesMost) samples.erase(samples.begin());
  samples.push_back({at, *tag.row.rssi});
}

}  // namespace

void TagList::take(const KVTracker& tracker, std::chrono::milliseconds at) {
  const auto& mac = tracker.mac();
  if (!mac) return;
  const auto [found, added] = tags_.try_emplace(*mac);
  auto& tag = found->second;
  const auto before = tag.row.lastAdvertised;
  if (added) {
    tag.row.address = *mac;
    recall_(tag.row);
  }
  // A tracker that was made anew for a command knows nothing yet.
  if (!tracker.advUpdate()) return;
  update(tag.row, tracker);
  if (!tag.firstHeard) tag.firstHeard = tag.row.lastAdvertised;
  if (tag.row.lastAdvertised != before) sample(tag, at);
}

void TagList::recall() {
  for (auto& [address, tag] : tags_) recall_(tag.row);
}

const HeardTag* TagList::find(const std::string& address) const {
  const auto found = tags_.find(address);
  return found == tags_.end() ? nullptr : &found->second;
}

void TagList::arrange(SortBy order, const std::string& filter) {
  shown_.clear();
  for (const auto& [address, tag] : tags_) {
    if (filter.empty() || matches(tag.row, filter)) shown_.push_back(&tag);
  }
  std::sort(shown_.begin(), shown_.end(), [order](const HeardTag* a, const HeardTag* b) {
    return comesBefore(a->row, b->row, order);
  });
  findSelected();
}

void TagList::findSelected() {
  if (address_.empty()) {
    selected_ = 0;
    return;
  }
  const auto found = std::find_if(shown_.begin(), shown_.end(), [this](const HeardTag* tag) {
    return tag->row.address == address_;
  });
  // One that the filter hides leaves its place to another, and takes it again later.
  if (found != shown_.end()) selected_ = static_cast<std::size_t>(found - shown_.begin());
  if (selected_ >= shown_.size()) selected_ = shown_.empty() ? 0 : shown_.size() - 1;
}

const HeardTag* TagList::selectedTag() const {
  return selected_ < shown_.size() ? shown_[selected_] : nullptr;
}

void TagList::select(std::size_t place) {
  if (shown_.empty()) return;
  selected_ = std::min(place, shown_.size() - 1);
  address_ = shown_[selected_]->row.address;
}

void TagList::move(std::ptrdiff_t places) {
  const auto now = static_cast<std::ptrdiff_t>(selected_);
  select(static_cast<std::size_t>(std::max<std::ptrdiff_t>(0, now + places)));
}

}  // namespace kvfob

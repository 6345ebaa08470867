// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef SIMULATOR_RADIO_ADVERTISER_H
#define SIMULATOR_RADIO_ADVERTISER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace kvsim {

class Medium;
struct RadioDevice;

/// When each device has its advertising events. Idle, and without cost, while nobody scans.
class Advertiser {
 public:
  explicit Advertiser(Medium& medium) : medium_(medium) {}

  /// Starts afresh with all devices, each at a random point of its interval.
  void start();
  void stop();
  bool running() const { return running_; }
  /// A device came; it advertises if this is running.
  void add(const std::shared_ptr<RadioDevice>& device);
  void remove(const RadioDevice& device);

 private:
  /// When, and then the device's serial, so that the order does not depend on addresses in memory.
  using Event = std::pair<std::chrono::nanoseconds, std::size_t>;

  void place(const std::shared_ptr<RadioDevice>& device);
  void cancelAlarm();
  void schedule();
  void advertiseDue();

  Medium& medium_;
  bool running_ = false;
  std::optional<std::chrono::nanoseconds> alarmAt_;
  std::uint64_t alarm_ = 0;
  std::map<Event, std::shared_ptr<RadioDevice>> events_;
};

}  // namespace kvsim

#endif  // SIMULATOR_RADIO_ADVERTISER_H

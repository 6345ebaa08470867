#ifndef SIMULATOR_RADIO_ADVERTISER_H
#define SIMULATOR_RADIO_ADVERTISER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace kvsim {

class Medium;

/// When each tag advertises. Idle, and without cost, while nobody scans.
class Advertiser {
 public:
  explicit Advertiser(Medium& medium) : medium_(medium) {}

  /// Starts afresh with all stations, each at a random point of its interval.
  void start();
  void stop();
  bool running() const { return running_; }
  /// A station came; it gets its turns if this is running.
  void add(std::size_t serial);

 private:
  struct Turn {
    std::chrono::nanoseconds due;
    std::size_t serial;
  };
  static bool later(const Turn& a, const Turn& b);

  std::chrono::nanoseconds now() const;
  void place(std::size_t serial);
  void cancelAlarm();
  void push(std::chrono::nanoseconds due, std::size_t serial);
  void schedule();
  void turn();

  Medium& medium_;
  bool running_ = false;
  std::uint64_t run_ = 0;  // tells a turn that its run was ended by what it called
  std::optional<std::chrono::nanoseconds> alarmAt_;
  std::uint64_t alarm_ = 0;
  std::vector<Turn> turns_;  // a heap, the first turn at the front
};

}  // namespace kvsim

#endif  // SIMULATOR_RADIO_ADVERTISER_H

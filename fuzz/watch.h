// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What the two stateful fuzzers watch: that promises are kept whatever happens.
#ifndef FUZZ_WATCH_H
#define FUZZ_WATCH_H

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KVFobLink/KVFobLink.h"
#include "KVFobSimulator/KVFobSimulator.h"

namespace kvfuzz {

inline constexpr const char* kPassword = "open sesame";
inline constexpr int kAddresses = 4;
inline std::string address(int i) { return "a1b2c3d4e5f" + std::to_string(i); }

/// Sets a platform on the simulated radio. Its log must hold no secret, and its timer threads
/// are counted.
class Watch {
 public:
  explicit Watch(kvsim::SimulatedRadio& radio, std::shared_ptr<KVRadio> instead = nullptr);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// Looks at all that the manager shows. Trackers that were seen once are watched from then on.
  void check(const KVTrackerManager& manager);

  /// Unbind requests that no tag has answered keep their tracker and the manager; no longer.
  void forgetUnbinds();

  /// After all was let go of and 31 seconds have passed: nothing is left.
  void expectNothingLeft() const;

 private:
  class Timers;
  void see(const std::shared_ptr<KVTracker>& tracker);
  void checkBound(const KVTrackerManager& manager) const;
  void checkScanned(const KVTrackerManager& manager) const;
  void checkTimers() const;

  std::shared_ptr<Timers> timers_;
  std::map<KVTracker*, std::weak_ptr<KVTracker>> trackers_;
};

/// Hands out completions of which each is called at most as often as promised, and never once it
/// has been replaced by a later one of the same tracker and kind.
class Completions {
 public:
  /// @param most  How often it may be called.
  KVResultCallback replace(const KVTracker* tracker, int kind, unsigned most,
                           KVResultCallback then = {});
  /// How often the latest of this kind was called.
  unsigned calls(const KVTracker* tracker, int kind) const;

 private:
  struct Token {
    unsigned calls = 0;
    bool replaced = false;
  };
  std::map<std::pair<const KVTracker*, int>, std::shared_ptr<Token>> latest_;
};

}  // namespace kvfuzz

#endif  // FUZZ_WATCH_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef SIMULATOR_RNG_H
#define SIMULATOR_RNG_H

#include <cstdint>
#include <span>

namespace kvsim {

/// A seeded generator (SplitMix64: Steele, Lea, Flood 2014), the same on every platform.
class Rng {
 public:
  /// Different streams of one seed have nothing to do with each other.
  explicit Rng(std::uint64_t seed, std::uint64_t stream = 0) : state_(seed) {
    state_ = next() ^ (stream * 0xD1342543DE82EF95U);
  }

  std::uint64_t next() {
    state_ += 0x9E3779B97F4A7C15U;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
    return mixed ^ (mixed >> 31);
  }

  /// 0 to `limit` - 1, or 0 for a limit of 0.
  std::uint64_t below(std::uint64_t limit) { return limit == 0 ? 0 : next() % limit; }

  /// 0 to just below 1.
  double unit() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }

  void fill(std::span<std::uint8_t> bytes) {
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(next() >> 56);
  }

 private:
  std::uint64_t state_;
};

}  // namespace kvsim

#endif  // SIMULATOR_RNG_H

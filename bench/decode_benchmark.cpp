// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Decoding one advertisement, beside the least and the usual way of it.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "KVFobLink/KVUtils.h"
#include "bench/allocations.h"

namespace {

constexpr std::array<std::uint8_t, 11> kFrame{0xA1, 0x0B, 100,  0xF6, 0xE5, 0xD4,
                                              0xC3, 0xB2, 0xA1, 0xF4, 3};

struct Fields {
  std::int64_t battery, radioTx, model;
  char mac[12];
};

void Decode(benchmark::State& state) {
  std::int64_t sum = 0;
  const KVUtils::Completion completion = [&sum](bool valid, std::int64_t battery, const auto& mac,
                                                std::int64_t, auto, std::int64_t) {
    if (valid) sum += battery + (*mac)[0];
  };
  const std::size_t before = kvbench::allocations();
  for (auto _ : state) {
    KVBytes frame = kFrame;
    benchmark::DoNotOptimize(frame);
    KVUtils::validateAdv(frame, -60, completion);
    benchmark::DoNotOptimize(sum);
  }
  state.counters["allocations"] = benchmark::Counter(
      static_cast<double>(kvbench::allocations() - before), benchmark::Counter::kAvgIterations);
}

void DecodeIntoPlainStruct(benchmark::State& state) {
  for (auto _ : state) {
    KVBytes frame = kFrame;
    benchmark::DoNotOptimize(frame);
    Fields fields{frame[2], static_cast<std::int8_t>(frame[9]), frame[10], {}};
    for (std::size_t i = 0; i < 6; ++i) {
      fields.mac[2 * i] = "0123456789abcdef"[frame[8 - i] >> 4];
      fields.mac[2 * i + 1] = "0123456789abcdef"[frame[8 - i] & 15];
    }
    benchmark::DoNotOptimize(fields);
  }
}

void DecodeWithSnprintf(benchmark::State& state) {
  for (auto _ : state) {
    KVBytes frame = kFrame;
    benchmark::DoNotOptimize(frame);
    Fields fields{frame[2], static_cast<std::int8_t>(frame[9]), frame[10], {}};
    char mac[13];
    std::snprintf(mac, sizeof mac, "%02x%02x%02x%02x%02x%02x", frame[8], frame[7], frame[6],
                  frame[5], frame[4], frame[3]);
    std::memcpy(fields.mac, mac, sizeof fields.mac);
    benchmark::DoNotOptimize(fields);
  }
}

BENCHMARK(Decode);
BENCHMARK(DecodeIntoPlainStruct);
BENCHMARK(DecodeWithSnprintf);

}  // namespace

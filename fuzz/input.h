// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What all fuzzers need.
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>

#include "KVFobLink/KVTypes.h"

namespace kvfuzz {

using Input = FuzzedDataProvider;

/// A broken promise ends the run, as a crash does.
inline void require(bool holds, const char* promise) {
  if (holds) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

inline KVData takeBytes(Input& input, std::size_t most) {
  return input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegralInRange<std::size_t>(0, most));
}

}  // namespace kvfuzz

/// The entry point that libFuzzer calls with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#endif  // FUZZ_INPUT_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The toolkit's helpers beside what one would use instead.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <unicode/regex.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "KVFobLink/KVCommonTool.h"
#include "bench/allocations.h"
#include "bench/quiet_platform.h"

#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace {

using Block = std::array<std::uint8_t, 16>;

const Block kKey{0x2B, 0x7E, 0x15, 0x16, 0x28, 0xAE, 0xD2, 0xA6,
                 0xAB, 0xF7, 0x15, 0x88, 0x09, 0xCF, 0x4F, 0x3C};
const Block kPlain{0x6B, 0xC1, 0xBE, 0xE2, 0x2E, 0x40, 0x9F, 0x96,
                   0xE9, 0x3D, 0x7E, 0x11, 0x73, 0x93, 0x17, 0x2A};

void installQuietPlatform(const benchmark::State& /*state*/) {
  KVPlatform::setCurrent(kvbench::quietPlatform());
}

// Counts what the loop allocates from its making to its end.
class AllocationCount {
 public:
  explicit AllocationCount(benchmark::State& state) : state_(state) {}
  ~AllocationCount() {
    state_.counters["allocations"] = benchmark::Counter(
        static_cast<double>(kvbench::allocations() - before_), benchmark::Counter::kAvgIterations);
  }
  AllocationCount(const AllocationCount&) = delete;
  AllocationCount& operator=(const AllocationCount&) = delete;

 private:
  benchmark::State& state_;
  const std::size_t before_ = kvbench::allocations();
};

void AesBlock(benchmark::State& state) {
  const AllocationCount count(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(KVCommonTool::encryptWithData(kPlain, kKey));
  }
}

// OpenSSL as it is meant to be used: the algorithm is fetched once, the context is kept.
void AesBlockOpenSsl(benchmark::State& state) {
  EVP_CIPHER* const cipher = EVP_CIPHER_fetch(nullptr, "AES-128-ECB", nullptr);
  EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
  for (auto _ : state) {
    KVData out(kPlain.size());
    int size = 0;
    EVP_EncryptInit_ex2(context, cipher, kKey.data(), nullptr, nullptr);
    EVP_CIPHER_CTX_set_padding(context, 0);
    EVP_EncryptUpdate(context, out.data(), &size, kPlain.data(), static_cast<int>(kPlain.size()));
    benchmark::DoNotOptimize(out.data());
  }
  EVP_CIPHER_CTX_free(context);
  EVP_CIPHER_free(cipher);
}

#ifdef __x86_64__
template <int kRound>
__attribute__((target("aes,sse2"))) __m128i nextRoundKey(__m128i key) {
  const __m128i assist = _mm_shuffle_epi32(_mm_aeskeygenassist_si128(key, kRound), 0xFF);
  for (int i = 0; i < 3; ++i) key = _mm_xor_si128(key, _mm_slli_si128(key, 4));
  return _mm_xor_si128(key, assist);
}

// The least that can be done: the processor's own instructions, with the same one allocation.
__attribute__((target("aes,sse2"))) void AesBlockRaw(benchmark::State& state) {
  for (auto _ : state) {
    KVData out(kPlain.size());
    __m128i key = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kKey.data()));
    __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kPlain.data()));
    benchmark::DoNotOptimize(key);
    block = _mm_xor_si128(block, key);
    block = _mm_aesenc_si128(block, key = nextRoundKey<0x01>(key));
    block = _mm_aesenc_si128(block, key = nextRoundKey<0x02>(key));
    block = _mm_aesenc_si128(block, key = nextRoundKey<0x04>(key));
    block = _mm_aesenc_si128(block, key = nextRoundKey<0x08>(key));
    block = _mm_aesenc_si128(block, key = nextRoundKey<0x10>(key));
    block = _mm_aesenc_si128(block, key = nextRoundKey<0x20>(key));
    block = _mm_aesenc_si128(block, key = nextRoundKey<0x40>(key));
    block = _mm_aesenc_si128(block, key = nextRoundKey<0x80>(key));
    block = _mm_aesenc_si128(block, key = nextRoundKey<0x1B>(key));
    block = _mm_aesenclast_si128(block, nextRoundKey<0x36>(key));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out.data()), block);
    benchmark::DoNotOptimize(out.data());
  }
}
BENCHMARK(AesBlockRaw)->Threads(1)->Threads(2);
#endif

constexpr std::string_view kText = "a1b2c3d4e5f6 open sesame";

void Md5Text(benchmark::State& state) {
  const AllocationCount count(state);
  for (auto _ : state) benchmark::DoNotOptimize(KVCommonTool::md5Encrypt(kText));
}

void Md5TextOpenSsl(benchmark::State& state) {
  for (auto _ : state) {
    Block digest;
    unsigned size = 0;
    EVP_Digest(kText.data(), kText.size(), digest.data(), &size, EVP_md5(), nullptr);
    char text[33];
    for (std::size_t i = 0; i < digest.size(); ++i) {
      std::snprintf(text + 2 * i, 3, "%02x", unsigned{digest[i]});
    }
    benchmark::DoNotOptimize(std::string(text));
  }
}

const std::optional<std::string> kAddress = "a1b2c3d4e5f6";
constexpr std::string_view kPattern = "[0-9a-f]{2}(:?[0-9a-f]{2}){5}";

void PatternKept(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(KVCommonTool::validateString(kAddress, kPattern));
}

void PatternCompiledEachTime(benchmark::State& state) {
  const icu::UnicodeString pattern = icu::UnicodeString::fromUTF8({kPattern.data(), 29});
  const icu::UnicodeString text = icu::UnicodeString::fromUTF8(*kAddress);
  for (auto _ : state) {
    UErrorCode status = U_ZERO_ERROR;
    icu::RegexMatcher matcher(pattern, text, 0, status);
    benchmark::DoNotOptimize(matcher.matches(status));
  }
}

void PatternThatRunsAway(benchmark::State& state) {
  const std::optional<std::string> letters = std::string(30, 'a') + "!";
  for (auto _ : state) benchmark::DoNotOptimize(KVCommonTool::validateString(letters, "(a+)+$"));
}

BENCHMARK(AesBlock)->Setup(installQuietPlatform)->Threads(1)->Threads(2);
BENCHMARK(AesBlockOpenSsl);
BENCHMARK(Md5Text)->Setup(installQuietPlatform);
BENCHMARK(Md5TextOpenSsl);
BENCHMARK(PatternKept)->Setup(installQuietPlatform);
BENCHMARK(PatternCompiledEachTime);
BENCHMARK(PatternThatRunsAway)->Setup(installQuietPlatform)->Unit(benchmark::kMillisecond);

}  // namespace

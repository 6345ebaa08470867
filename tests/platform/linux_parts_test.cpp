// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "KVFobLink/KVLinuxPlatform.h"
#include "platform/linux/cipher.h"
#include "platform/linux/log.h"
#include "platform/linux/owned_fd.h"
#include "platform/linux/settings.h"

namespace {

using Block = std::array<std::uint8_t, 16>;

TEST(CipherTest, Aes128OfFips197) {
  Block key;
  Block plain;
  for (std::size_t i = 0; i < key.size(); ++i) {
    key[i] = static_cast<std::uint8_t>(i);
    plain[i] = static_cast<std::uint8_t>(i * 0x11);
  }
  const Block expected = {0x69, 0xc4, 0xe0, 0xd8, 0x6a, 0x7b, 0x04, 0x30,
                          0xd8, 0xcd, 0xb7, 0x80, 0x70, 0xb4, 0xc5, 0x5a};
  const kv::Cipher cipher;
  Block block = plain;
  EXPECT_TRUE(cipher.aes128Block(key, block, block, /*encrypt=*/true));  // in place
  EXPECT_EQ(block, expected);
  EXPECT_TRUE(cipher.aes128Block(key, expected, block, /*encrypt=*/false));
  EXPECT_EQ(block, plain);
}

TEST(CipherTest, Md5OfRfc1321) {
  const std::map<std::string, std::string> vectors = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const auto& [text, expected] : vectors) {
    Block digest;
    kv::Cipher().md5(KVData(text.begin(), text.end()), digest);
    std::string hex;
    for (const std::uint8_t byte : digest) {
      hex += "0123456789abcdef"[byte >> 4];
      hex += "0123456789abcdef"[byte & 15];
    }
    EXPECT_EQ(hex, expected);
  }
}

TEST(RandomTest, FillsEveryByteAnew) {
  const auto platform = KVLinuxPlatform::make();
  Block seen{};
  Block last{};
  for (int i = 0; i < 64; ++i) {
    Block block{};
    platform->random->fill(block);
    EXPECT_NE(block, last);
    last = block;
    for (std::size_t at = 0; at < seen.size(); ++at) seen[at] |= block[at];
  }
  EXPECT_THAT(seen, testing::Each(0xFF));  // each bit was set at least once
}

TEST(LogTest, LinesOfThreadsDoNotMix) {
  const std::string path = testing::TempDir() + "kvfob-log-" + std::to_string(getpid());
  constexpr int kLines = 300;
  {
    const kv::OwnedFd file(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    kv::FdLog log(file.get());
    std::vector<std::thread> threads;
    for (const char c : {'a', 'b', 'c'}) {
      threads.emplace_back([&log, c] {
        for (int i = 0; i < kLines; ++i) log.write(std::string(200, c));
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
  std::ifstream reader(path);
  std::map<std::string, int> lines;
  for (std::string line; std::getline(reader, line);) ++lines[line];
  std::remove(path.c_str());
  EXPECT_THAT(lines, testing::ElementsAre(testing::Pair(std::string(200, 'a'), kLines),
                                          testing::Pair(std::string(200, 'b'), kLines),
                                          testing::Pair(std::string(200, 'c'), kLines)));
}

TEST(LogTest, DescriptorThatTakesNothingHoldsUpNobody) { kv::FdLog(-1).write("lost"); }

TEST(SettingsTest, EachOptionArrivesAsItself) {
  using std::chrono::milliseconds;
  KVBlueZOptions given;
  given.adapter = "hci7";
  given.busAddress = "unix:path=/nowhere";
  std::int64_t count = 0;
  const auto times = [](KVBlueZOptions& of) {
    return std::array{&of.connectTimeout,    &of.servicesTimeout, &of.requestTimeout,
                      &of.disconnectTimeout, &of.scanWatchdog,    &of.retryFirst,
                      &of.retryMost};
  };
  for (milliseconds* time : times(given)) *time = milliseconds(++count);
  const KVLinuxSettings settings(given);
  KVBlueZOptions taken = settings.data().options.bluez;
  EXPECT_EQ(taken.adapter, given.adapter);
  EXPECT_EQ(taken.busAddress, given.busAddress);
  for (std::size_t i = 0; i < times(given).size(); ++i) {
    EXPECT_EQ(*times(taken)[i], *times(given)[i]) << i;
  }
}

TEST(LogTest, SinkIsCalledOneAtATimeAndMayLog) {
  int count = 0;  // not atomic on purpose: the log's lock guards it
  KVLog* log = nullptr;
  KVLinuxOptions options;
  options.log = [&](std::string_view line) {
    ++count;
    if (line == "outer") log->write("inner");
  };
  const auto platform = KVLinuxPlatform::make(options);
  log = platform->log.get();
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) log->write("outer");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, 3 * 500 * 2);
}

}  // namespace

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "KVFobLink/KVLinuxPlatform.h"
#include "KVFobLink/KVPlatform.h"
#include "KVFobLink/KVUUID.h"

namespace {

TEST(CurrentPlatformTest, DefaultIsMadeOnceByWhicheverThread) {
  std::vector<const KVPlatform*> seen(4);
  std::vector<std::thread> threads;
  for (const KVPlatform*& slot : seen) {
    threads.emplace_back([&slot] { slot = &KVPlatform::current(); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(seen, testing::Each(KVPlatform::shared().get()));
  EXPECT_TRUE(seen[0]->eventQueue && seen[0]->radio && seen[0]->cipher && seen[0]->random &&
              seen[0]->patterns && seen[0]->timers && seen[0]->clock && seen[0]->log);
}

TEST(CurrentPlatformTest, InstallReplaceAndGoBack) {
  const auto standard = KVPlatform::shared();
  auto mine = std::make_shared<KVPlatform>(*standard);
  const std::weak_ptr<KVPlatform> weak = mine;
  KVPlatform::setCurrent(mine);
  EXPECT_EQ(&KVPlatform::current(), mine.get());
  EXPECT_EQ(KVPlatform::shared(), mine);
  mine.reset();
  EXPECT_FALSE(weak.expired());
  KVPlatform::setCurrent(nullptr);
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(&KVPlatform::current(), standard.get());
}

TEST(UUIDTest, CanonicalForm) {
  struct Case {
    const char* text;
    std::optional<std::string> canonical;
  };
  const std::vector<Case> cases = {
      {"180a", "180A"},
      {"180A", "180A"},
      {"0000180a-0000-1000-8000-00805f9b34fb", "180A"},
      {"0000180A-0000-1000-8000-00805F9B34FB", "180A"},
      {"0001180a-0000-1000-8000-00805f9b34fb", "0001180A-0000-1000-8000-00805F9B34FB"},
      {"0000180a-0000-1000-8000-00805f9b34fc", "0000180A-0000-1000-8000-00805F9B34FC"},
      {"a1b2c3d4-e5f6-0718-293a-4b5c6d7e8f90", "A1B2C3D4-E5F6-0718-293A-4B5C6D7E8F90"},
      {"", std::nullopt},
      {"18a", std::nullopt},
      {"180g", std::nullopt},
      {"18ag", std::nullopt},
      {"18ga", std::nullopt},
      {"0x18", std::nullopt},
      {"0000180a", std::nullopt},
      {"0000180a-0000-1000-8000-00805f9b34f", std::nullopt},
      {"0000180a-0000-1000-8000-00805f9b34fb ", std::nullopt},
      {"0000180a-0000-1000-8000 00805f9b34fb", std::nullopt},
      {"0000180a0-000-1000-8000-00805f9b34fb", std::nullopt},
      {"{000180a-0000-1000-8000-00805f9b34f}", std::nullopt},
  };
  for (const Case& c : cases) {
    const auto uuid = KVUUID::fromString(c.text);
    EXPECT_EQ(uuid ? std::optional(uuid->string()) : std::nullopt, c.canonical) << c.text;
    EXPECT_EQ(uuid ? KVUUID::fromString(uuid->string()) : std::nullopt, uuid);
  }
  EXPECT_EQ(KVUUID::fromString("0000180a-0000-1000-8000-00805f9b34fb"), KVUUID(0x180A));
  EXPECT_EQ(KVUUID(0x0001).string(), "0001");
}

}  // namespace

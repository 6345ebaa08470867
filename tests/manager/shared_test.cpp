// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The process-wide manager: a program of its own, as there is one per process.
#include <thread>

#include "tests/support/core_test.h"

namespace kvtest {
namespace {

class SharedManagerTest : public CoreTest {};

TEST_F(SharedManagerTest, TwoFirstCallsAtOnceMakeOneManager) {
  std::atomic<int> ready = 0;
  std::shared_ptr<KVTrackerManager> managers[2];
  const auto call = [&](std::size_t i) {
    ++ready;
    while (ready < 2) std::this_thread::yield();
    managers[i] = KVTrackerManager::sharedInstance();
  };
  std::thread other(call, 1);
  call(0);
  other.join();
  ASSERT_NE(managers[0], nullptr);
  EXPECT_EQ(managers[0], managers[1]);
  EXPECT_EQ(radio->delegates, std::vector<KVCentralDelegate*>{managers[0].get()});
  managers[0]->setPassword("kept");
  const std::weak_ptr<KVTrackerManager> watched = managers[0];
  managers[0].reset();
  managers[1].reset();
  EXPECT_FALSE(watched.expired());
  EXPECT_EQ(KVTrackerManager::sharedInstance()->password(), "kept");
}

}  // namespace
}  // namespace kvtest

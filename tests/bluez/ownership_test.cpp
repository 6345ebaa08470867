// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>

#include <filesystem>

#include "KVFobLink/KVLinuxDiagnosis.h"
#include "tests/bluez/bluez_fixture.h"

namespace kvtest {
namespace {

using ::testing::IsEmpty;

// What a process that leaks runs out of.
struct Resources {
  static std::ptrdiff_t count(const char* of) {
    const std::filesystem::directory_iterator entries(std::string("/proc/self/") + of);
    return std::distance(begin(entries), end(entries));
  }
  std::ptrdiff_t descriptors = count("fd");
  std::ptrdiff_t threads = count("task");

  bool operator==(const Resources&) const = default;
};

class OwnershipTest : public BlueZTest {
 protected:
  // Runs the daemon's queue and the central's own until `condition` holds.
  [[nodiscard]] bool waitForBoth(const std::function<bool()>& condition) {
    return waitFor([&] {
      own->dispatch();
      return condition();
    });
  }

  std::shared_ptr<KVLinuxEventQueue> own = KVLinuxPlatform::makeEventQueue();
};

TEST_F(OwnershipTest, PlatformThatNobodyRunsIsFreedWithItsCentral) {
  using Hold = void (*)(KVEventQueue&, const std::shared_ptr<KVCentral>&);
  const std::pair<const char*, Hold> cases[] = {
      {"nothing else", [](auto&, const auto&) {}},
      {"a task that owns the central", [](auto& on, const auto& held) { on.post([held] {}); }},
      {"a delayed one", [](auto& on, const auto& held) { on.postAfter(1h, [held] {}); }},
  };
  KVLinuxOptions all;
  all.bluez = options;
  for (const auto& [name, hold] : cases) {
    std::weak_ptr<KVEventQueue> lastQueue;
    std::weak_ptr<KVCentral> lastCentral;
    const Resources before;
    for (int i = 0; i < 200; ++i) {
      const auto platform = KVLinuxPlatform::make(all);
      const auto made = platform->radio->makeCentral(*recorder, platform->eventQueue);
      hold(*platform->eventQueue, made);
      lastQueue = platform->eventQueue;
      lastCentral = made;
    }
    EXPECT_TRUE(lastQueue.expired()) << name;
    EXPECT_TRUE(lastCentral.expired()) << name;
    EXPECT_EQ(Resources(), before) << name;
  }
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(OwnershipTest, QueueDroppedWithTasksThatOwnALinkEndsThatLink) {
  startDaemon();
  bluez->addAdapter();
  ASSERT_TRUE(waitFor([&] { return bluez->ready(); }));
  const Resources before;
  central = kv::makeBlueZRadio(options, log, timing)->makeCentral(*recorder, own);
  ASSERT_TRUE(waitForBoth([&] { return central->state() == KVCentralStatePoweredOn; }));
  central->scanForPeripherals({}, /*allowDuplicates=*/true);
  ASSERT_TRUE(waitForBoth([&] { return bluez->calls("StartDiscovery") == 1; }));
  bluez->advertise(kTag, kFrame);
  ASSERT_TRUE(waitForBoth([&] { return recorder->found != nullptr; }));
  std::shared_ptr<KVPeripheral> tag = std::move(recorder->found);
  tag->setDelegate(recorder);
  central->connectPeripheral(tag);
  ASSERT_TRUE(waitForBoth([&] { return tag->state() == KVPeripheralStateConnected; }));

  tag->discoverServices();  // its answer is queued, and so is the signal strength
  tag->readRSSI();
  own->post([held = central, tag] {});
  own->postAfter(1h, [held = central, tag] {});
  takeEvents();
  const std::weak_ptr<KVCentral> last = central;
  central.reset();
  own.reset();
  EXPECT_TRUE(last.expired());
  EXPECT_TRUE(waitForCall("Disconnect"));  // else the tag stays silent for everybody
  EXPECT_EQ(Resources().threads, before.threads);
  EXPECT_EQ(Resources().descriptors, before.descriptors - 3);  // the queue's own are gone as well

  // The handle lives on, and does nothing.
  tag->readRSSI();
  tag->discoverServices();
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(OwnershipTest, EventsThatAreQueuedWhenTheCentralIsDroppedNeverArrive) {
  startAll();
  const auto tag = link();
  central->scanForPeripherals({}, /*allowDuplicates=*/true);
  central->connectPeripheral(tag);  // answered at once, as it is linked
  tag->discoverServices();
  bluez->set(kHci, kAdapter, "Powered", false);
  central.reset();
  queue->runFor(50ms);
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(OwnershipTest, DiagnosisThatATaskOwnsIsFreedWithTheQueue) {
  bool called = false;
  std::weak_ptr<KVLinuxDiagnosis> last;
  {
    auto diagnosis = KVLinuxDiagnosis::start(own, options, [&](const auto&) { called = true; });
    last = diagnosis;
    own->post([diagnosis] {});
  }
  own.reset();
  EXPECT_TRUE(last.expired());
  EXPECT_FALSE(called);
}

}  // namespace
}  // namespace kvtest

#include "KVFobLink/KVLinuxPlatform.h"
#include "KVFobSimulator/KVFobSimulator.h"
#include "tests/support/event_queue_conformance.h"
#include "tests/support/timer_thread_conformance.h"

namespace kvsim {
namespace {

using namespace std::chrono_literals;

struct VirtualQueueMaker {
  static std::shared_ptr<KVEventQueue> make() { return std::make_shared<VirtualEventQueue>(); }
};

class VirtualTimerRig {
 public:
  KVTimerThreads& timers() { return *timers_; }
  std::chrono::nanoseconds now() const { return queue_.now(); }
  void pass(std::chrono::nanoseconds time) { queue_.runFor(time); }

 private:
  VirtualEventQueue queue_;
  const std::shared_ptr<KVTimerThreads> timers_ = queue_.timers();
};

}  // namespace
}  // namespace kvsim

namespace kvtest {
INSTANTIATE_TYPED_TEST_SUITE_P(Virtual, EventQueueConformance, kvsim::VirtualQueueMaker);
INSTANTIATE_TYPED_TEST_SUITE_P(Virtual, TimerThreadConformance, kvsim::VirtualTimerRig);
}  // namespace kvtest

namespace kvsim {
namespace {

TEST(VirtualEventQueueTest, TimeIsExact) {
  VirtualEventQueue queue;
  const auto calendar = queue.clock();
  const auto start = calendar->now();
  std::vector<std::chrono::nanoseconds> ran;
  queue.postAfter(30s, [&] {
    ran.push_back(queue.now());
    queue.postAfter(1ns, [&] { ran.push_back(queue.now()); });
  });
  queue.runFor(30s - 1ns);
  EXPECT_TRUE(ran.empty());
  queue.runFor(1h);
  EXPECT_THAT(ran, testing::ElementsAre(30s, 30s + 1ns));
  EXPECT_EQ(queue.now(), 1h + 30s - 1ns);
  EXPECT_EQ(calendar->now() - start, queue.now());
}

TEST(VirtualEventQueueTest, TicksComeAtTheirTimeBetweenTheTasks) {
  VirtualEventQueue queue;
  std::vector<std::string> log;  // the queue waits for each tick, so no lock is needed
  const auto timer = queue.timers()->start(3s, [&] { log.push_back("tick"); });
  for (const auto at : {2s, 4s, 7s}) {
    queue.postAfter(at, [&log, at] { log.push_back(std::to_string(at.count())); });
  }
  queue.runFor(9s);
  EXPECT_THAT(log, testing::ElementsAre("2", "tick", "4", "tick", "7", "tick"));
}

TEST(VirtualEventQueueTest, IdleMeansThatOnlyBackgroundWorkIsLeft) {
  VirtualEventQueue queue;
  int ticks = 0;
  const auto timer = queue.timers()->start(1s, [&] { ++ticks; });
  const auto background = queue.postBackground(1h, [] {});
  EXPECT_TRUE(queue.runUntilIdle());
  EXPECT_EQ(queue.now(), 0s);
  queue.postAfter(10s, [] {});
  queue.cancel(background);
  EXPECT_FALSE(queue.runUntilIdle(4s));
  EXPECT_EQ(queue.now(), 4s);
  EXPECT_TRUE(queue.runUntilIdle());
  EXPECT_EQ(queue.now(), 10s);
  EXPECT_GE(ticks, 9);
  EXPECT_TRUE(queue.runUntil([&] { return ticks == 20; }));
  EXPECT_EQ(queue.now(), 20s);
  EXPECT_FALSE(queue.runUntil([] { return false; }, 5s));
  EXPECT_EQ(queue.now(), 25s);
}

}  // namespace
}  // namespace kvsim

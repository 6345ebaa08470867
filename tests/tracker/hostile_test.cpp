// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Callbacks that pull the rug from under the tracker that calls them. The sanitizers see what
// the assertions cannot.
#include "tests/support/core_tracker_test.h"

namespace kvtest {
namespace {

using Body = std::function<void()>;

// One kind of callback: how it is installed, and what makes the tracker call it once.
struct Kind {
  const char* name;
  void (*install)(KVTracker&, const Body&);
  void (*fire)(KVTracker&, FakePeripheral&, FakeQueue&, const KVData& answer);
  const char* frame;
};

KVResultCallback asResult(const Body& body) {
  if (!body) return nullptr;
  return [body](bool, const std::optional<KVError>&) { body(); };
}

void byAnswer(KVTracker& t, FakePeripheral& p, FakeQueue&, const KVData& answer) {
  p.reportValue(t.korvaChar(), answer);
}

const Kind kKinds[] = {
    {"Bind", [](KVTracker& t, const Body& b) { t.setBindingBlock(asResult(b)); },
     [](KVTracker& t, FakePeripheral& p, FakeQueue&, const KVData& answer) {
       t.setBinding(true);
       p.reportValue(t.korvaChar(), answer);
     },
     "01021300"},
    {"Timeout", [](KVTracker& t, const Body& b) { t.setBindingBlock(asResult(b)); },
     [](KVTracker& t, FakePeripheral&, FakeQueue& q, const KVData&) {
       t.setBinding(true);
       q.runFor(std::chrono::seconds(30));
     },
     ""},
    {"Ring", [](KVTracker& t, const Body& b) { t.setRingBlock(asResult(b)); }, byAnswer,
     "01020500"},
    {"Alert", [](KVTracker& t, const Body& b) { t.setWritelossAlertBlock(asResult(b)); }, byAnswer,
     "01021e00"},
    {"Delay", [](KVTracker& t, const Body& b) { t.setWritelossDelayBlock(asResult(b)); }, byAnswer,
     "01022000"},
    {"Remove", [](KVTracker& t, const Body& b) { t.setPasswordRemoveBlock(asResult(b)); }, byAnswer,
     "01021400"},
    {"Distance", [](KVTracker& t, const Body& b) { t.setWritelossDistanceBlock(asResult(b)); },
     [](KVTracker& t, FakePeripheral& p, FakeQueue&, const KVData&) { p.reportWrite(t.txChar()); },
     ""},
    {"Receive",
     [](KVTracker& t, const Body& b) {
       t.didReceive(b ? [b](std::int64_t) { b(); } : KVTracker::ReceiveCallback());
     },
     byAnswer, "01020d00"},
    {"Connection",
     [](KVTracker& t, const Body& b) {
       t.setBound(true);
       t.didConnectionChange(b ? [b](std::uint64_t) { b(); } : KVTracker::ConnectionCallback());
     },
     [](KVTracker& t, FakePeripheral&, FakeQueue&, const KVData&) { t.setState(0); }, ""},
    {"Rejected",
     [](KVTracker& t, const Body& b) {
       t.setBound(true);
       t.didConnectionChange(b ? [b](std::uint64_t) { b(); } : KVTracker::ConnectionCallback());
     },
     byAnswer, "01021301"},
    {"Updated", [](KVTracker& t, const Body& b) { t.didValueUpdate(b); },
     [](KVTracker& t, FakePeripheral&, FakeQueue&, const KVData&) { t.setState(3); }, ""},
    {"Read", [](KVTracker& t, const Body& b) { t.didValueUpdate(b); },
     [](KVTracker&, FakePeripheral& p, FakeQueue&, const KVData&) { p.reportRSSI(-60); }, ""},
};

class HostileTest : public TrackerTest, public ::testing::WithParamInterface<Kind> {
 protected:
  HostileTest() {
    removeCallbacks();
    open();
  }

  void fire() {
    GetParam().fire(*tracker, *p, *queue, sealed(session, GetParam().frame));
    Lines lines = took();
    std::erase_if(lines, [](const std::string& line) {
      return line.starts_with("log: ==") || line.starts_with("timer");
    });
    EXPECT_EQ(lines, Lines{});
  }

  void install(const Body& body) { GetParam().install(*tracker, body); }

  int calls = 0;
};

TEST_P(HostileTest, ClearsItself) {
  install([this, kept = std::string(100, 'x')] {
    install(nullptr);
    calls += static_cast<int>(kept.size());  // its own captures are still there
  });
  fire();
  fire();
  EXPECT_EQ(calls, 100);
}

TEST_P(HostileTest, ReplacesItself) {
  install([this, kept = std::string(100, 'x')] {
    install([this] { ++calls; });
    calls += static_cast<int>(kept.size());
  });
  fire();
  EXPECT_EQ(calls, 100);
  fire();
  EXPECT_EQ(calls, 101);
}

TEST_P(HostileTest, DropsTheLastReference) {
  const std::weak_ptr<KVTracker> watched = tracker;
  install([this, kept = std::string(100, 'x')] {
    tracker.reset();
    calls += static_cast<int>(kept.size());
  });
  fire();
  queue->runFor(std::chrono::seconds(31));  // a check that is left keeps it alive until then
  took();
  EXPECT_EQ(calls, 100);
  EXPECT_TRUE(watched.expired());
}

TEST_P(HostileTest, CausesItselfAgain) {
  install([this] {
    if (++calls == 1) fire();
  });
  fire();
  EXPECT_EQ(calls, 2);
}

INSTANTIATE_TEST_SUITE_P(Each, HostileTest, ::testing::ValuesIn(kKinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

class MidwayTest : public TrackerTest {
 protected:
  MidwayTest() {
    open();
    tracker->setBound(true);
  }
};

TEST_F(MidwayTest, SecondReportOfAReconnectIsGatedAnew) {
  tracker->didConnectionChange([this](std::uint64_t) {
    journal->add("connected");
    tracker->setBound(false);
  });
  answer("01021300");
  EXPECT_EQ(took(), (Lines{"timer start 3000 ms", "connected"}));
}

TEST_F(MidwayTest, RequestEndedInsideTheConnectionReport) {
  tracker->setBinding(true);
  tracker->didConnectionChange([this](std::uint64_t) {
    journal->add("connected");
    tracker->setBinding(false);
  });
  answer("01021300");
  EXPECT_EQ(took(), (Lines{"timer start 3000 ms", "connected", "connected"}));
}

TEST_F(MidwayTest, NewRequestInsideTheBindResult) {
  tracker->setBindingBlock([this](bool, const std::optional<KVError>& error) {
    journal->add(error->domain);
    tracker->setBindingBlock(result("again"));
    tracker->setBinding(true);
  });
  tracker->setBinding(true);
  queue->runFor(std::chrono::seconds(30));
  EXPECT_EQ(took(), Lines{"Error! Binding Timeout."});
  EXPECT_TRUE(tracker->binding());
  queue->runFor(std::chrono::seconds(30));
  EXPECT_EQ(took(), Lines{"again false Error! Binding Timeout. 400"});
}

TEST_F(MidwayTest, DroppedInsideTheFirstReportOfADisconnection) {
  tracker->initRSSITimerThread();
  tracker->didConnectionChange([this](std::uint64_t) { tracker.reset(); });
  tracker->didValueUpdate([to = journal] { to->add("updated"); });
  took();
  tracker->setState(KVTrackerStateDisconnected);
  EXPECT_EQ(took(), (Lines{"timer stop", "updated"}));
}

TEST_F(MidwayTest, ReplacedCompletionHeldTheLastReference) {
  const std::function<void(KVTracker&, KVResultCallback)> commands[] = {
      [](KVTracker& t, KVResultCallback c) { t.switchBellStatus(/*status=*/true, c); },
      [](KVTracker& t, KVResultCallback c) { t.writeLossAlert(/*on=*/true, c); },
      [](KVTracker& t, KVResultCallback c) { t.writeLossDelay(1, c); },
      [](KVTracker& t, KVResultCallback c) { t.removeBindPassword(c); },
      [](KVTracker& t, KVResultCallback c) { t.writeLossDistance(KVDistanceFar, c); },
  };
  for (const auto& command : commands) {
    auto held = std::make_shared<KVTracker>();
    held->setPeripheral(p);
    held->setTxChar(tracker->txChar());
    const std::weak_ptr<KVTracker> watched = held;
    KVTracker& raw = *held;
    command(raw, [held = std::move(held)](bool, const std::optional<KVError>&) {});
    took();
    EXPECT_FALSE(watched.expired());
    command(raw, nullptr);
    EXPECT_EQ(took().size(), 1u);  // it has done its work, and only then gone
    EXPECT_TRUE(watched.expired());
  }
}

}  // namespace
}  // namespace kvtest

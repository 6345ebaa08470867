// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The tag's answers, and the commands that they answer.
#include "tests/support/core_tracker_test.h"

namespace kvtest {
namespace {

class AnswersTest : public TrackerTest {
 protected:
  AnswersTest() { open(); }
};

TEST_F(AnswersTest, EachCodeReachesItsCallback) {
  const struct {
    const char* frame;
    Lines called;
  } cases[] = {
      {"01020500", {"ring true"}},
      {"010105", {"ring true"}},
      {"01020501", {"ring false ring device failed. 200"}},
      {"010e05ff", {"ring false ring device failed. 200"}},
      {"01030500ff", {"ring true"}},
      {"01021e00", {"alert true"}},
      {"01011e01", {"alert true"}},
      {"01021e80", {"alert false write loss alert failed. 300"}},
      {"01022000", {"delay true"}},
      {"01022002", {"delay false write loss delay failed. 400"}},
      {"01021400", {"remove true"}},
      {"01021401", {"remove false password removed. 500"}},
      {"01020d00", {"received 1"}},
      {"01020d07", {"received 1"}},
      {"01010d", {"received 1"}},
      {"01020000", {}},
      {"01020600", {}},
      {"0102ff00", {}},
      {"ff020500", {}},
      {"ff021300", {}},
      {"00020500", {}},
      {"010f0500", {}},
      {"01000500", {}},
  };
  for (int round = 0; round < 2; ++round) {
    for (const auto& c : cases) {
      answer(c.frame);
      EXPECT_EQ(took(), c.called) << c.frame;
    }
  }
  removeCallbacks();
  for (const auto& c : cases) answer(c.frame);
  EXPECT_EQ(took(), Lines{});
}

TEST_F(AnswersTest, ValueOfAnotherSizeIsDropped) {
  for (const std::size_t size : {0u, 15u, 17u, 32u}) {
    p->reportValue(tracker->korvaChar(), KVData(size));
    EXPECT_EQ(took(), Lines{"log: Cipher Key Error!"}) << size;
  }
  p->reportValue(tracker->korvaChar(), std::nullopt, KVError{"read failed", 1, {}});
  EXPECT_EQ(took(), Lines{"log: Cipher Key Error!"});
  // An error that comes with a value changes nothing.
  p->reportValue(tracker->korvaChar(), sealed(session, "01020500"), KVError{"odd", 1, {}});
  EXPECT_EQ(took(), Lines{"ring true"});
}

TEST_F(AnswersTest, OnlyTheCommandCharacteristicIsHeard) {
  const auto stray = p->add(kVendorService, {kCommandChar});
  const auto command = p->add(kCommandService, {kDistanceChar, kCommandChar});
  const auto orphan = std::make_shared<KVCharacteristic>(*KVUUID::fromString(kCommandChar),
                                                         std::weak_ptr<KVService>());
  const std::shared_ptr<KVCharacteristic> others[] = {
      p->services()[1]->characteristics()[0], p->services()[2]->characteristics()[0],
      stray->characteristics()[0], command->characteristics()[0], orphan};
  for (const std::uint64_t stage : {KVAuthTokenChecked, KVAuthNone}) {
    tracker->setAuth(stage);
    for (const auto& other : others) {
      p->reportValue(other, sealed(session, "01020500"));
      EXPECT_EQ(tracker->auth(), stage);
      EXPECT_EQ(took(), Lines{});
    }
  }
  tracker->setAuth(KVAuthTokenReceived);  // any stage but 0 takes answers, on any such handle
  p->reportValue(command->characteristics()[1], sealed(session, "01020500"));
  EXPECT_EQ(took(), Lines{"ring true"});
}

TEST_F(AnswersTest, BindAnswer) {
  const std::string again = "connection 2 state 2";
  const struct {
    bool binding;
    const char* frame;
    Lines called;
    std::uint64_t connection;
  } cases[] = {
      {true, "01021300", {"timer start 3000 ms", again, "bind true"}, 2},
      {true, "010113", {"timer stop", "timer start 3000 ms", again, "bind true"}, 2},
      {true, "01021301", {"bind false error password. 100"}, 1},
      {false, "01021300", {"timer stop", "timer start 3000 ms", again, again}, 2},
      {false, "01021302", {"connection -1 state 2"}, KVConnectionVerifyFailed},
  };
  tracker->setBound(true);
  for (const auto& c : cases) {
    tracker->updateConnection(KVConnectionConnecting);
    tracker->setBinding(c.binding);
    took();
    answer(c.frame);
    EXPECT_EQ(took(), c.called) << c.frame;
    EXPECT_EQ(tracker->connection(), c.connection);
    EXPECT_FALSE(tracker->binding());
  }
  queue->runFor(std::chrono::seconds(31));  // the checks find nothing to end
  tracker->setBound(false);
  answer("01021300");
  EXPECT_EQ(took(), (Lines{"timer stop", "timer start 3000 ms"}));
}

TEST_F(AnswersTest, BindAnswerFindsTheRequestOver) {
  tracker->setBindingBlock([this](bool success, const std::optional<KVError>& error) {
    EXPECT_FALSE(tracker->binding());
    result("bind")(success, error);
  });
  tracker->setBinding(true);
  answer("01021301");
  EXPECT_EQ(took(), Lines{"bind false error password. 100"});
}

TEST_F(AnswersTest, BindAnswerWithoutABindCallbackIsAPlainReconnect) {
  tracker->setBindingBlock(nullptr);
  tracker->setBinding(true);
  answer("01021305");
  EXPECT_EQ(tracker->connection(), KVConnectionVerifyFailed);
  EXPECT_TRUE(tracker->binding());
}

TEST_F(AnswersTest, LateBindAnswerIsAPlainReconnect) {
  tracker->setBinding(true);
  queue->runFor(std::chrono::seconds(30));
  EXPECT_EQ(took(), Lines{"bind false Error! Binding Timeout. 400"});
  answer("01021300");
  EXPECT_EQ(took(), Lines{"timer start 3000 ms"});
  EXPECT_EQ(tracker->connection(), 2u);
}

class CommandsTest : public AnswersTest {
 protected:
  // Calls a command with the random fill starting at 60.
  template <typename Call>
  Lines sent(Call call) {
    random->next = 0x60;
    call(*tracker);
    return took();
  }
};

TEST_F(CommandsTest, FramesOfEachCommand) {
  const struct {
    std::function<void(KVTracker&)> call;
    const char* frame;
  } cases[] = {
      {[](KVTracker& t) { t.switchBellStatus(/*status=*/true, nullptr); }, "00020500"},
      {[](KVTracker& t) { t.switchBellStatus(/*status=*/false, nullptr); }, "00020501"},
      {[](KVTracker& t) { t.writeLossAlert(/*on=*/true, nullptr); }, "00021e00"},
      {[](KVTracker& t) { t.writeLossAlert(/*on=*/false, nullptr); }, "00021e01"},
      {[](KVTracker& t) { t.writeLossDelay(0, nullptr); }, "0003200000"},
      {[](KVTracker& t) { t.writeLossDelay(258, nullptr); }, "0003200201"},
      {[](KVTracker& t) { t.writeLossDelay(7000, nullptr); }, "000320581b"},
      {[](KVTracker& t) { t.removeBindPassword(nullptr); }, "00021400"},
  };
  for (const auto& c : cases) {
    KVData frame = bytes(c.frame);
    for (std::uint8_t fill = 0x60; frame.size() < 16;) frame.push_back(fill++);
    EXPECT_EQ(sent(c.call), Lines{wrote(*p, session, hex(frame))}) << c.frame;
  }
}

TEST_F(CommandsTest, DelayOutOfRangeIsRefused) {
  using Limits = std::numeric_limits<std::int64_t>;
  for (const std::int64_t delay :
       {std::int64_t{7001}, std::int64_t{-1}, Limits::min(), Limits::max()}) {
    tracker->writeLossDelay(delay, result("never"));
    EXPECT_EQ(took(), Lines{"log: the given delay value is incorrect."}) << delay;
  }
  answer("01022000");
  EXPECT_EQ(took(), Lines{"delay true"});  // the earlier completion is still in place
}

TEST_F(CommandsTest, LossDistanceIsOnePlainByte) {
  const std::pair<std::uint64_t, Lines> cases[] = {
      {2, {"P write A3C87504 00"}},
      {3, {"P write A3C87504 f8"}},
      {4, {"P write A3C87504 ec"}},
  };
  for (const auto& [level, lines] : cases) {
    tracker->writeLossDistance(level, result("distance"));
    EXPECT_EQ(took(), lines);
  }
  for (const std::uint64_t level :
       {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{5}, UINT64_MAX}) {
    tracker->writeLossDistance(level, result("never"));
    EXPECT_EQ(took(), Lines{"log: the given distance level is incorrect."}) << level;
  }
  p->reportWrite(tracker->txChar());
  EXPECT_EQ(took(), (Lines{"log: ==a new instruction sent", "distance true"}));
  p->reportWrite(tracker->txChar(), KVError{"att", 7, {{{"k", "v"}}}});
  EXPECT_EQ(took(), (Lines{"log: ==a new instruction sent", "distance false att 7 with info"}));
  p->reportWrite(tracker->korvaChar());
  EXPECT_EQ(took(), Lines{"log: ==a new instruction sent"});
  tracker->setWritelossDistanceBlock(nullptr);
  p->reportWrite(tracker->txChar());
  EXPECT_EQ(took(), Lines{"log: ==a new instruction sent"});
}

TEST_F(CommandsTest, LatestCompletionOfAKindIsCalled) {
  const struct {
    std::function<void(KVTracker&, KVResultCallback)> call;
    const char* answer;
  } cases[] = {
      {[](KVTracker& t, KVResultCallback c) { t.switchBellStatus(/*status=*/true, c); },
       "01020500"},
      {[](KVTracker& t, KVResultCallback c) { t.writeLossAlert(/*on=*/true, c); }, "01021e00"},
      {[](KVTracker& t, KVResultCallback c) { t.writeLossDelay(1, c); }, "01022000"},
      {[](KVTracker& t, KVResultCallback c) { t.removeBindPassword(c); }, "01021400"},
  };
  for (const auto& c : cases) {
    c.call(*tracker, result("first"));
    c.call(*tracker, result("second"));
    took();
    answer(c.answer);
    answer(c.answer);
    EXPECT_EQ(took(), (Lines{"second true", "second true"}));
    c.call(*tracker, nullptr);
    took();
    answer(c.answer);
    EXPECT_EQ(took(), Lines{});
  }
}

TEST_F(CommandsTest, BeforeTheHandshakeNothingIsWrittenButTheCompletionIsKept) {
  tracker->setComToken(std::nullopt);
  tracker->setRingBlock(nullptr);
  tracker->switchBellStatus(/*status=*/true, result("ring"));
  EXPECT_EQ(took(), Lines{"log: Cipher Key Error!"});
  EXPECT_TRUE(tracker->ringBlock());
  tracker->removeBindPassword(result("remove"));
  EXPECT_EQ(took(), Lines{"log: Cipher Key Error!"});
}

}  // namespace
}  // namespace kvtest

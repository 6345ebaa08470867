// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/errand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "apps/kvfob/radio/radio.h"
#include "apps/kvfob/radio/world.h"
#include "apps/kvfob/scan/bind_prompt.h"
#include "apps/kvfob/watch/link_keeper.h"
#include "apps/kvfob/watch/sent_commands.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* kFreeTag = "0a1b2c3d4e60";

// A scan with a virtual clock: a tag that is bound with "sesame", and one that is not bound.
struct Stage {
  Stage() {
    session.manager().startScan([](const KVTrackers&) {});
    radio.clock().runFor(3s);
  }

  static kvsim::SimulatedRadioOptions options() {
    kvsim::SimulatedRadioOptions chosen;
    chosen.requestTimeout = 1h;  // so that a stalled handshake stalls for good
    chosen.log = makeLog(LogLevel::Off);
    return chosen;
  }

  bool hears(const std::string& address) {
    return session.manager().existTracker(address, /*bind=*/false) != nullptr;
  }

  const Radio none{Options{.radio = RadioKind::Sim}};
  kvsim::SimulatedRadio radio{options()};
  PlatformInForce platform{radio.platform()};
  std::shared_ptr<kvsim::VirtualTag> tag =
      radio.addTag({.address = kBoundTag, .password = kBoundTagPassword});
  std::shared_ptr<kvsim::VirtualTag> freeTag = radio.addTag({.address = kFreeTag, .password = {}});
  std::ostringstream out;
  Console console{out, out, /*color=*/false, /*live=*/false};
  SignalFd signals{SIGUSR1};
  Loop loop{radio.platform()->eventQueue, signals};
  Session session{none, loop, console};
};

TEST(ErrandTest, DoesOneThingAndLetsGo) {
  const struct {
    ErrandKind kind;
    const char* address;
    const char* password;
    void (*spoil)(Stage& stage);
    int code;
    const char* message;
  } kCases[] = {
      {ErrandKind::Ring, kBoundTag, "sesame", [](Stage&) {}, kDone, ""},
      {ErrandKind::Silence, kBoundTag, "sesame", [](Stage&) {}, kDone, ""},
      {ErrandKind::Bind, kFreeTag, "new", [](Stage&) {}, kDone, ""},
      {ErrandKind::Ring, kBoundTag, "wrong", [](Stage&) {}, kRefused, "refused the password"},
      {ErrandKind::Bind, kBoundTag, "wrong", [](Stage&) {}, kRefused, "it was bound with"},
      {ErrandKind::Bind, "0a1b2c3d4eff", "new", [](Stage&) {}, kNotFound, "not heard"},
      {ErrandKind::Ring, "0a1b2c3d4eff", "new", [](Stage&) {}, kNotFound, "not heard"},
      {ErrandKind::Ring, kBoundTag, "sesame",
       [](Stage& s) { s.tag->behaviour().commands[kvsim::kBellCommand].status = 1; }, kRefused,
       "refused: ring device failed."},
      {ErrandKind::Ring, kBoundTag, "sesame",
       [](Stage& s) { s.tag->behaviour().commands[kvsim::kBellCommand].mute = true; }, kTimedOut,
       "no answer"},
      {ErrandKind::Ring, kBoundTag, "sesame",
       [](Stage& s) {
         s.tag->behaviour().steps[kvsim::Procedure::OpeningRead].fault = kvsim::StepFault::Mute;
       },
       kTimedOut, "did not get ready"},
      {ErrandKind::Bind, kFreeTag, "new",
       [](Stage& s) { s.freeTag->behaviour().commands[kvsim::kBindCommand].mute = true; },
       kTimedOut, "did not answer the bind request"},
  };
  for (const auto& [kind, address, password, spoil, code, message] : kCases) {
    Stage stage;
    spoil(stage);
    std::vector<Outcome> outcomes;
    Errand errand(stage.session, kind, address, Secret(password), 31s,
                  [&](const Outcome& outcome) { outcomes.push_back(outcome); });
    EXPECT_TRUE(outcomes.empty());
    stage.radio.clock().runFor(70s);
    ASSERT_EQ(outcomes.size(), 1U) << message;
    EXPECT_EQ(outcomes[0].code, code) << message << outcomes[0].message;
    EXPECT_THAT(outcomes[0].message, HasSubstr(message));
    const bool rings = kind == ErrandKind::Ring && code == kDone;
    EXPECT_EQ(stage.tag->state().bellRinging, rings);
    EXPECT_EQ(stage.freeTag->state().passwordSet, kind == ErrandKind::Bind && code == kDone);
    EXPECT_FALSE(stage.tag->state().connected || stage.freeTag->state().connected) << message;
    EXPECT_TRUE(stage.hears(kBoundTag) && stage.hears(kFreeTag)) << message;
  }
}

TEST(ErrandTest, TheBellIsSilencedWithTheSamePassword) {
  Stage stage;
  for (const bool ring : {true, false}) {
    Errand errand(stage.session, ring ? ErrandKind::Ring : ErrandKind::Silence, kBoundTag,
                  Secret("sesame"), 30s, [](const Outcome&) {});
    stage.radio.clock().runFor(10s);
    EXPECT_EQ(stage.tag->state().bellRinging, ring);
  }
}

TEST(ErrandTest, IsGivenUpWhenItIsDropped) {
  Stage stage;
  int told = 0;
  for (const auto kind : {ErrandKind::Ring, ErrandKind::Bind}) {
    auto errand = std::make_unique<Errand>(stage.session, kind,
                                           kind == ErrandKind::Ring ? kBoundTag : kFreeTag,
                                           Secret("sesame"), 30s, [&](const Outcome&) { ++told; });
    stage.radio.clock().runFor(1ms);
    errand.reset();
    stage.radio.clock().runFor(60s);
    EXPECT_TRUE(stage.hears(kBoundTag) && stage.hears(kFreeTag));
  }
  EXPECT_EQ(told, 0);
  EXPECT_FALSE(stage.tag->state().bellRinging);
}

TEST(LinkKeeperTest, BeginsAStalledHandshakeAgain) {
  Stage stage;
  stage.tag->behaviour().steps[kvsim::Procedure::OpeningRead] = {.fault = kvsim::StepFault::Mute,
                                                                 .times = 2};
  auto& clock = stage.radio.clock();
  const HeldTag held(stage.session, kBoundTag, Secret("sesame"));
  held.tracker()->didConnectionChange([&](std::uint64_t connection) {
    if (connection == KVConnectionConnecting) stage.session.manager().stopScan();
  });
  int again = 0;
  const LinkKeeper keeper(stage.session, held.tracker(), [&] { ++again; });
  clock.runFor(29s);
  EXPECT_EQ(again, 0);
  EXPECT_EQ(held.tracker()->connection(), KVConnectionConnecting);
  clock.runFor(6s);
  EXPECT_EQ(again, 1);
  clock.runFor(35s);
  EXPECT_EQ(again, 2);
  EXPECT_EQ(held.tracker()->connection(), KVConnectionConnected);
  clock.runFor(100s);
  EXPECT_EQ(again, 2);
}

// One letter a key; Enter and Tab as themselves, ^ erases.
std::optional<Secret> type(BindPrompt& prompt, const std::string& keys) {
  std::optional<Secret> password;
  for (const char c : keys) {
    Key key{.character = c};
    if (c == '\n') key = {.kind = KeyKind::Enter};
    if (c == '^') key = {.kind = KeyKind::Erase};
    if (auto made = prompt.type(key)) password = std::move(made);
  }
  return password;
}

TEST(BindPromptTest, WantsThePasswordTwice) {
  const struct {
    const char* keys;
    const char* password;  // empty: not yet
    const char* question;
  } kCases[] = {
      {"", "", "Password to bind with: _"},
      {"abc", "", "Password to bind with: ***_"},
      {"abc\n", "", "The same once more: _"},
      {"abc\nab", "", "The same once more: **_"},
      {"abc\nabc\n", "abc", "Password to bind with: _"},
      {"abc\nabd\n", "", "They differ. Password to bind with: _"},
      {"abc\nabd\nx\nx\n", "x", "Password to bind with: _"},
      {"abc\nabd\nx\n", "", "The same once more: _"},
      {"ax^bc\nabc\n", "abc", "Password to bind with: _"},
      {"\n", "", "It has 1 to 13 bytes. Password to bind with: _"},
      {"thirteenbytes\nthirteenbytes\n", "thirteenbytes", "Password to bind with: _"},
      {"fourteen bytes\n", "", "It has 1 to 13 bytes. Password to bind with: _"},
      {"far too long a text\n", "", "It has 1 to 13 bytes. Password to bind with: _"},
  };
  for (const auto& [keys, password, question] : kCases) {
    BindPrompt prompt(kFreeTag);
    const auto made = type(prompt, keys);
    EXPECT_EQ(made ? made->text() : "", password) << keys;
    EXPECT_EQ(prompt.question(), question) << keys;
    EXPECT_FALSE(prompt.save());
  }
  BindPrompt prompt(kFreeTag);
  EXPECT_EQ(prompt.tag(), kFreeTag);
  EXPECT_EQ(type(prompt, "a\tb\nab\n")->text(), "ab");
  EXPECT_TRUE(prompt.save());
  type(prompt, "\t");
  EXPECT_FALSE(prompt.save());
}

TEST(SentCommandsTest, TellsBothDirectionsAndHowLongItTook) {
  SentCommands sent;
  EXPECT_EQ(sent.sent(CommandKind::Bell, "ring", 1s), "→ ring: sent");
  EXPECT_EQ(sent.sent(CommandKind::Alert, "loss alert on", 2s), "→ loss alert on: sent");
  EXPECT_TRUE(sent.waits(CommandKind::Bell));
  EXPECT_FALSE(sent.waits(CommandKind::Delay));
  EXPECT_EQ(sent.answered(CommandKind::Bell, std::nullopt, 1999ms),
            "← ring: answered after 999 ms");
  EXPECT_FALSE(sent.waits(CommandKind::Bell));
  EXPECT_EQ(sent.answered(CommandKind::Bell, std::nullopt, 2s), "← an answer once more");
  EXPECT_THAT(sent.overdue(6999ms), ElementsAre());
  EXPECT_THAT(sent.overdue(7s), ElementsAre("  loss alert on: no answer for 5.0 s"));
  EXPECT_THAT(sent.overdue(8s), ElementsAre());
  EXPECT_FALSE(sent.waits(CommandKind::Alert));
  EXPECT_EQ(sent.answered(CommandKind::Alert, "why", 9250ms),
            "← loss alert on: refused after 7.2 s: why");
  sent.sent(CommandKind::Distance, "loss distance far", 10s);
  sent.sent(CommandKind::Delay, "loss delay 1", 1s);
  sent.overdue(6s);
  EXPECT_THAT(sent.lost(), ElementsAre("  loss distance far: no answer, as the link was lost"));
  EXPECT_THAT(sent.lost(), ElementsAre());
  sent.sent(CommandKind::Delay, "loss delay 2", 0s);
  EXPECT_EQ(sent.answered(CommandKind::Delay, std::nullopt, 1s),
            "← loss delay 2: answered after 1.0 s");
}

}  // namespace
}  // namespace kvfob

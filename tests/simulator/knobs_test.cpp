// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The library against tags with one knob turned each, end to end in virtual time.
#include <gtest/gtest.h>

#include "KVFobLink/KVFobLink.h"
#include "KVFobSimulator/KVFobSimulator.h"
#include "tests/support/no_log.h"

namespace kvsim {
namespace {

using namespace std::chrono_literals;

struct Knob {
  const char* name;
  void (*turn)(TagBehaviour&);
  const char* outcome;
};

constexpr const char* kGood = "bound, rang";
constexpr const char* kTimedOut = "Error! Binding Timeout. 400";
constexpr const char* kUnanswered = "bound, no answer";

const Knob kKnobs[] = {
    {"Good", [](TagBehaviour&) {}, kGood},
    {"BellSecondType",
     [](TagBehaviour& b) { b.commands[kBellCommand].fault = AnswerFault::SecondType; },
     kUnanswered},
    {"BellUnknownType",
     [](TagBehaviour& b) { b.commands[kBellCommand].fault = AnswerFault::UnknownType; },
     kUnanswered},
    {"BellWrongLength",
     [](TagBehaviour& b) { b.commands[kBellCommand].fault = AnswerFault::WrongLength; },
     kUnanswered},
    {"BellZeroLength",
     [](TagBehaviour& b) { b.commands[kBellCommand].fault = AnswerFault::ZeroLength; },
     kUnanswered},
    {"BellNoPayload",
     [](TagBehaviour& b) { b.commands[kBellCommand].fault = AnswerFault::NoPayload; }, kGood},
    {"BellOtherCode",
     [](TagBehaviour& b) { b.commands[kBellCommand].fault = AnswerFault::OtherCode; }, kUnanswered},
    {"BellWrongKey",
     [](TagBehaviour& b) { b.commands[kBellCommand].fault = AnswerFault::WrongKey; }, kUnanswered},
    {"BindAnswerReplayed",
     [](TagBehaviour& b) { b.commands[kBellCommand].fault = AnswerFault::Replay; }, kUnanswered},
    {"AnswersLate", [](TagBehaviour& b) { b.answerDelay = 20s; }, kGood},
    {"AnswersTooLate", [](TagBehaviour& b) { b.answerDelay = 31s; }, kTimedOut},
    {"OpeningTooShort", [](TagBehaviour& b) { b.openingLength = 15; }, kTimedOut},
    {"OpeningEmpty", [](TagBehaviour& b) { b.openingLength = 0; }, kTimedOut},
    {"OpeningTooLong", [](TagBehaviour& b) { b.openingLength = 17; }, kTimedOut},
    {"TwoCommandCharacteristics", [](TagBehaviour& b) { b.commandCharacteristics = 2; }, kGood},
    {"NoSecondService", [](TagBehaviour& b) { b.secondService = false; }, kGood},
    {"ConnectFailsThrice",
     [](TagBehaviour& b) {
       b.steps[Procedure::Connecting] = {StepFault::Fail, 3};
     },
     kGood},
    {"ConnectNever", [](TagBehaviour& b) { b.steps[Procedure::Connecting] = {StepFault::Fail}; },
     kTimedOut},
    {"TokenConfirmedLate",
     [](TagBehaviour& b) {
       b.steps[Procedure::TokenWrite] = {StepFault::Delay, 1, 5s};
     },
     kGood},
};

class Knobs : public ::testing::TestWithParam<Knob> {};

std::string describe(const std::optional<KVError>& error) {
  return error ? error->domain + " " + std::to_string(error->code) : "";
}

TEST_P(Knobs, BindAndRing) {
  SimulatedRadio radio({.log = std::make_shared<kvtest::NoLog>()});
  KVPlatform::setCurrent(radio.platform());
  TagBehaviour behaviour;
  GetParam().turn(behaviour);
  const auto tag = radio.addTag({}, behaviour);
  std::string outcome;
  {
    const auto manager = std::make_shared<KVTrackerManager>();
    manager->setPassword("secret");
    manager->startScan([&](const KVTrackers& trackers) {
      manager->stopScan();
      const std::shared_ptr<KVTracker> tracker = trackers[0];
      // The tracker keeps the completion, which therefore must not keep the tracker.
      const std::weak_ptr<KVTracker> weak = tracker;
      manager->bindingVerify(tracker, [&outcome, weak](bool bound, const auto& error) {
        outcome = bound ? kUnanswered : describe(error);
        const std::shared_ptr<KVTracker> held = weak.lock();
        if (!bound || !held) return;
        held->switchBellStatus(/*status=*/true, [&outcome](bool rings, const auto& refusal) {
          outcome = rings ? "bound, rang" : "bound, " + describe(refusal);
        });
      });
    });
    radio.clock().runFor(90s);
    manager->removeAllTrackers();
  }
  KVPlatform::setCurrent(nullptr);
  EXPECT_EQ(outcome, GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(All, Knobs, ::testing::ValuesIn(kKnobs),
                         [](const auto& knob) { return std::string(knob.param.name); });

}  // namespace
}  // namespace kvsim

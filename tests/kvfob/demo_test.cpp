// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/demo/demo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <sstream>

#include "apps/kvfob/radio/radio.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;

// A demo with a virtual clock.
struct Stage {
  static kvsim::SimulatedRadioOptions options() {
    kvsim::SimulatedRadioOptions chosen;
    chosen.log = makeLog(LogLevel::Off);
    return chosen;
  }

  kvsim::SimulatedRadio radio{options()};
  PlatformInForce platform{radio.platform()};
  std::ostringstream out;
  Console console{out, out, /*color=*/false, /*live=*/false};
};

TEST(DemoTest, GoodTagPassesEveryStep) {
  Stage stage;
  const auto outcome = Demo(stage.radio, nullptr, stage.console).run();
  EXPECT_EQ(outcome.code, kDone) << stage.out.str();
  for (const char* line :
       {"tag > phone  [0-9a-f]{32}  opening value", "phone > tag  [0-9a-f]{32}  token with",
        "tag > phone  [0-9a-f]{32}  answer to command 5, status 0  .01 02 05 00 . 12 random.",
        "phone > tag  f8 +set the loss distance to -8  .not encrypted.", "All 13 steps"}) {
    EXPECT_THAT(stage.out.str(), ::testing::ContainsRegex(line));
  }
}

TEST(DemoTest, NamesTheStepThatFails) {
  const struct {
    void (*spoil)(kvsim::TagBehaviour& behaviour);
    const char* message;
  } kCases[] = {
      {[](auto& b) { b.informationService = b.commandService = false; }, "step 4 (Bind)"},
      {[](auto& b) { b.commands[kvsim::kBellCommand].status = 1; },
       "step 5 (Ring) failed: ring device failed."},
      {[](auto& b) { b.commands[kvsim::kDelayCommand].mute = true; },
       "step 8 (Loss delay) failed: no answer"},
      {[](auto& b) { b.distanceCharacteristic = false; }, "step 9 (Loss distance)"},
      {[](auto& b) { b.steps[kvsim::Procedure::RssiRead].fault = kvsim::StepFault::Fail; },
       "step 10 (Live signal)"},
      {[](auto& b) { b.commands[kvsim::kRemovePasswordCommand].status = 1; },
       "step 13 (Unbind) failed: password removed."},
  };
  for (const auto& [spoil, message] : kCases) {
    Stage stage;
    Demo demo(stage.radio, nullptr, stage.console);
    spoil(demo.tag().behaviour());
    const auto outcome = demo.run();
    EXPECT_EQ(outcome.code, kInternal) << message;
    EXPECT_NE(outcome.message.find(message), std::string::npos) << outcome.message;
  }
}

TEST(DemoTest, DoesNotTrustTheAnswerAlone) {
  Stage stage;
  Demo demo(stage.radio, nullptr, stage.console);
  demo.tag().behaviour().commands[kvsim::kAlertCommand].mute = true;
  // The tag says yes all the time and does nothing.
  std::function<void()> lie = [&] {
    const std::array<std::uint8_t, 1> yes{0};
    demo.tag().sendFrame(kvsim::kAlertCommand, yes);
    stage.radio.clock().postBackground(50ms, lie);
  };
  lie();
  EXPECT_NE(demo.run().message.find("the tag's loss alert is off"), std::string::npos)
      << stage.out.str();
}

}  // namespace
}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The command that puts a tag on the air; the test plays bluetoothd on a private bus.
#include "apps/kvfob/commands/air_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <sstream>

#include "tests/bluez/fake_bluez.h"
#include "tests/bluez/private_bus.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;
using kvtest::kAdapter;
using kvtest::kHci;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;

// One run, with all that it meets.
struct Stage {
  Stage() {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), /*overwrite=*/1);
    while (!daemon.ready()) queue->runFor(1ms);
    daemon.addAdapter(kHci, "A1:B2:C3:D4:E5:F6");
    daemon.add(kHci, "org.bluez.GattManager1", {});
    daemon.add(kHci, "org.bluez.LEAdvertisingManager1", {});
    for (const char* member : {"RegisterApplication", "RegisterAdvertisement"})
      answerAfter(member, 0s);
    options.command = Command::Tag;
    options.adapter = "hci90";
    options.timeout = 10s;
  }
  ~Stage() {
    dup2(input, STDIN_FILENO);
    close(input);
  }

  void answerAfter(const char* member, std::chrono::milliseconds delay) {
    daemon.on(member, [this, delay](const kv::BusCall& call) {
      queue->postAfter(delay, [call] { call.reply(); });
    });
  }
  void listAfter(std::chrono::milliseconds delay) {
    daemon.on("GetManagedObjects", [this, delay](const kv::BusCall& call) {
      queue->postAfter(delay, [this, call] { daemon.answer(call); });
    });
  }

  // What is on standard input.
  static void type(const std::string& text) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    EXPECT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    close(ends[1]);
  }

  // Ends the run once it has printed this.
  void endAt(const std::string& text) {
    queue->postAfter(5ms, [this, text] {
      if (out.str().find(text) == std::string::npos) return endAt(text);
      raise(SIGTERM);
    });
  }

  Outcome run() { return AirRun(queue, loop, console, options, Secret()).run(); }

  const int input = dup(STDIN_FILENO);
  kvtest::PrivateBus bus;
  std::shared_ptr<KVLinuxEventQueue> queue = KVLinuxPlatform::makeEventQueue();
  kvtest::FakeBlueZ daemon{queue, bus.address()};
  SignalFd signals{SIGTERM};
  Loop loop{queue, signals};
  std::ostringstream out;
  std::ostringstream err;
  Console console{out, err, /*color=*/false, /*live=*/false};
  Options options;
};

TEST(AirRunTest, WhateverComesWithinTheTimeOutIsTaken) {
  const std::pair<const char*, void (*)(Stage & stage)> kCases[] = {
      {"", [](Stage&) {}},
      {"", [](Stage& stage) { stage.listAfter(300ms); }},
      {"", [](Stage& stage) { stage.answerAfter("RegisterAdvertisement", 300ms); }},
      // After the time in which the user is not told.
      {"kvfob: waiting: the adapter hci90 is off\n",
       [](Stage& stage) {
         stage.daemon.set(kHci, kAdapter, "Powered", false);
         stage.queue->postAfter(2200ms, [&] { stage.daemon.set(kHci, kAdapter, "Powered", true); });
       }},
      {"kvfob: waiting: for the Bluetooth service\n",
       [](Stage& stage) { stage.listAfter(2200ms); }},
  };
  for (const auto& [notes, spoil] : kCases) {
    Stage stage;
    spoil(stage);
    stage.endAt("ready: on the air as a1b2c3d4e5f6\n");
    EXPECT_EQ(stage.run().code, kSignal + SIGTERM);
    EXPECT_EQ(stage.out.str(), "ready: on the air as a1b2c3d4e5f6\n");
    EXPECT_EQ(stage.err.str(), notes);
  }
}

TEST(AirRunTest, WhatDoesNotComeEndsWithTheReason) {
  const std::pair<const char*, void (*)(Stage & stage)> kCases[] = {
      {"there is no adapter hci91", [](Stage& stage) { stage.options.adapter = "hci91"; }},
      {"the Bluetooth service does not answer", [](Stage& stage) { stage.listAfter(1h); }},
      {"the Bluetooth service does not answer",
       [](Stage& stage) { stage.answerAfter("RegisterApplication", 1h); }},
      {"bluetoothd does not take the tag: ",
       [](Stage& stage) {
         stage.daemon.on("RegisterApplication",
                         [](const kv::BusCall& call) { call.fail(kvtest::kFailed, "no room"); });
       }},
  };
  for (const auto& [message, spoil] : kCases) {
    Stage stage;
    spoil(stage);
    stage.options.timeout = 200ms;
    const auto start = stage.queue->now();
    const auto outcome = stage.run();
    EXPECT_EQ(outcome.code, kNoAdapter);
    EXPECT_THAT(outcome.message, ::testing::StartsWith(message));
    EXPECT_GE(stage.queue->now() - start, 200ms);
    EXPECT_LT(stage.queue->now() - start, 1900ms) << "not longer";
    EXPECT_EQ(stage.out.str() + stage.err.str(), "");
  }
}

TEST(AirRunTest, TellsScriptsWhatHappens) {
  Stage stage;
  stage.options.json = true;
  stage.queue->postAfter(1ms, [&] { stage.daemon.set(kHci, kAdapter, "Powered", true); });
  std::function<void()> onceReady = [&] {
    if (!stage.out.str().empty()) return stage.daemon.set(kHci, kAdapter, "Powered", false);
    stage.queue->postAfter(5ms, onceReady);
  };
  onceReady();
  stage.endAt("waiting");
  EXPECT_EQ(stage.run().code, kSignal + SIGTERM);
  const std::string time = R"re("time":"[-0-9]{10}T[0-9:]{8}\.[0-9]{3}Z",)re";
  EXPECT_THAT(stage.out.str(),
              ::testing::MatchesRegex(R"re(\{"event":"ready",)re" + time +
                                      R"re("address":"a1b2c3d4e5f6"\})re"
                                      "\n"
                                      R"re(\{"event":"waiting",)re" +
                                      time +
                                      R"re("reason":"the adapter hci90 is off"\})re"
                                      "\n"));
}

TEST(AirRunTest, TakesCommandsFromItsInput) {
  Stage stage;
  Stage::type("\nbattery 256\nb 255\np\nbattery\npress 1\nq\nrubbish\n");
  EXPECT_EQ(stage.run().code, kDone);
  const auto refused = [](const std::string& line) {
    return "kvfob: \"" + line + "\" is not press, battery N (0 to 255) or quit, nor p, b N or q\n";
  };
  EXPECT_EQ(stage.err.str(),
            refused("battery 256") + refused("battery") + refused("press 1") + refused("rubbish"));
}

}  // namespace
}  // namespace kvfob

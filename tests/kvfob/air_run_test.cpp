// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The command that puts a tag on the air; the test plays bluetoothd on a private bus.
#include "apps/kvfob/commands/air_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <sstream>

#include "apps/kvfob/base/text.h"
#include "platform/linux/bus/connection.h"
#include "platform/linux/bus/message.h"
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

  // A standard input that can be typed on.
  static int keyboard() {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    return ends[1];
  }
  static void type(int keyboard, const std::string& text) {
    EXPECT_EQ(write(keyboard, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(keyboard);
  }

  // Does something once the run has printed this.
  void at(const std::string& text, const std::function<void()>& act) {
    queue->postAfter(5ms, [this, text, act] {
      out.str().find(text) == std::string::npos ? at(text, act) : act();
    });
  }
  void endAt(const std::string& text) {
    at(text, [] { raise(SIGTERM); });
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
  stage.at("ready", [&] { stage.daemon.set(kHci, kAdapter, "Powered", false); });
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
  Stage::type(Stage::keyboard(), "\nbattery 256\np\nbattery\npress 1\nq\nrubbish\n");
  EXPECT_EQ(stage.run().code, kDone);
  const auto refused = [](const std::string& line) {
    return "kvfob: \"" + line + "\" is not press, battery N (0 to 255) or quit, nor p, b N or q\n";
  };
  EXPECT_EQ(stage.err.str(),
            refused("battery 256") + refused("battery") + refused("press 1") + refused("rubbish"));
}

TEST(AirRunTest, NewBatteryValueIsAdvertised) {
  Stage stage;
  const int keyboard = Stage::keyboard();
  stage.at("ready", [&] { Stage::type(keyboard, "battery 255\nb 7\n"); });
  std::string announced;
  const auto watcher = kv::BusConnection::open(stage.queue, stage.bus.address(), {});
  const auto match = watcher->match(
      "type='signal',member='PropertiesChanged',path='/kvfob/advertisement'",
      [&](const kv::BusMessage& signal) {
        kv::readText(signal.get());
        kv::forEachProperty(signal.get(), [&](std::string_view key, std::string_view) {
          if (key != "ServiceData") return false;
          kv::forEachBytes(signal.get(),
                           [&](std::string_view, KVBytes value) { announced = hex(value); });
          if (announced.starts_with("a10b07")) raise(SIGTERM);
          return true;
        });
      });
  EXPECT_EQ(stage.run().code, kSignal + SIGTERM) << "the end of the input is not that of the tag";
  EXPECT_EQ(announced.substr(0, 6), "a10b07");
}

}  // namespace
}  // namespace kvfob

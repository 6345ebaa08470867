// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// What a command does while Bluetooth is not there; the test plays bluetoothd on a private bus.
#include "apps/kvfob/radio/session.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/bluez/fake_bluez.h"
#include "tests/bluez/private_bus.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;
using kvtest::FakeBlueZ;
using kvtest::kAdapter;
using kvtest::kHci;

struct Stage {
  Stage() { setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), /*overwrite=*/1); }

  void startDaemon() {
    daemon.emplace(queue(), bus.address());
    while (!daemon->ready()) queue()->runFor(1ms);
  }
  void startWithAdapter(bool powered = true) {
    startDaemon();
    daemon->addAdapter(kHci, "A1:B2:C3:D4:E5:F6", powered);
  }
  void power(bool on) { daemon->set(kHci, kAdapter, "Powered", on); }
  std::shared_ptr<KVLinuxEventQueue> queue() {
    return std::dynamic_pointer_cast<KVLinuxEventQueue>(radio.queue());
  }

  // A run that ends by itself once Bluetooth has been there for `work`.
  Outcome run(std::chrono::milliseconds patience, std::chrono::milliseconds work) {
    session.whenOn(
        [this, work] {
          ++begun;
          session.after(work, [this] { session.finish({}); });
        },
        patience);
    return session.run();
  }

  kvtest::PrivateBus bus;
  const Options options{};
  Radio radio{options};
  std::optional<FakeBlueZ> daemon;
  SignalFd signals{SIGTERM};
  Loop loop{radio.queue(), signals};
  std::ostringstream out;
  std::ostringstream err;
  Console console{out, err, /*color=*/false, /*live=*/false};
  Session session{radio, loop, console};
  int begun = 0;
};

TEST(SessionTest, BluetoothIsThereOrSaysWhyNot) {
  const struct {
    const char* what;
    void (*prepare)(Stage& stage);
    int begun;
    std::string word;
    const char* message;
  } kCases[] = {
      {"on", [](Stage& stage) { stage.startWithAdapter(); }, 1, "done", ""},
      {"off", [](Stage& stage) { stage.startWithAdapter(false); }, 0, "powered-off",
       "bluetoothctl power on"},
      {"no adapter", [](Stage& stage) { stage.startDaemon(); }, 0, "no-adapter", "adapter"},
      {"no service", [](Stage&) {}, 0, "no-service", "systemctl start bluetooth"},
      {"no bus", [](Stage& stage) { stage.bus.stop(); }, 0, "no-service", "message bus"},
      {"a service that is being restarted",
       [](Stage& stage) {
         stage.queue()->postAfter(300ms, [&] {
           stage.daemon.emplace(stage.queue(), stage.bus.address());
           stage.daemon->addAdapter(kHci, "A1:B2:C3:D4:E5:F6");
         });
       },
       1, "done", ""},
  };
  for (const auto& [what, prepare, begun, word, message] : kCases) {
    Stage stage;
    prepare(stage);
    const auto outcome = stage.run(20s, 1ms);
    EXPECT_EQ(stage.begun, begun) << what;
    EXPECT_EQ(codeWord(outcome), word) << what << ": " << outcome.message;
    EXPECT_EQ(outcome.code, begun == 1 ? kDone : kNoAdapter) << what;
    EXPECT_NE(outcome.message.find(message), std::string::npos) << what << outcome.message;
  }
}

TEST(SessionTest, SilentServiceIsWaitedForAsLongAsIsAsked) {
  Stage stage;
  stage.startDaemon();
  stage.daemon->on("GetManagedObjects", [](const kv::BusCall&) {});
  const auto outcome = stage.run(2200ms, 1ms);
  EXPECT_EQ(outcome.code, kNoAdapter);
  EXPECT_EQ(codeWord(outcome), "no-bluetooth") << outcome.message;
  EXPECT_NE(stage.err.str().find("waiting for Bluetooth"), std::string::npos);
}

TEST(SessionTest, AdapterThatIsSwitchedOffEndsWhatCannotGoOn) {
  for (const bool survives : {false, true}) {
    Stage stage;
    stage.startWithAdapter();
    if (survives) stage.session.surviveAdapter();
    // Also while the first look at what there is may still be under way.
    stage.queue()->postAfter(survives ? 20ms : 100ms, [&] { stage.power(false); });
    stage.queue()->postAfter(500ms, [&] { stage.power(true); });
    const auto outcome = stage.run(20s, 900ms);
    EXPECT_EQ(stage.begun, 1);
    EXPECT_EQ(codeWord(outcome), survives ? "done" : "powered-off") << outcome.message;
    const auto notes = stage.err.str();
    EXPECT_EQ(notes.find("the Bluetooth adapter is off") != std::string::npos, survives) << notes;
    EXPECT_EQ(notes.find("the Bluetooth adapter is on") != std::string::npos, survives) << notes;
  }
}

TEST(SessionTest, LostOutputAndSignalsEndIt) {
  {
    Stage stage;
    stage.startWithAdapter();
    stage.queue()->postAfter(50ms, [&] {
      stage.out.setstate(std::ios::badbit);
      stage.console.line("lost");
    });
    EXPECT_EQ(stage.run(20s, 20s).code, kInternal);
  }
  Stage stage;
  stage.startWithAdapter();
  stage.queue()->postAfter(50ms, [] { raise(SIGTERM); });
  EXPECT_EQ(stage.run(20s, 20s).code, kSignal + SIGTERM);
}

}  // namespace
}  // namespace kvfob

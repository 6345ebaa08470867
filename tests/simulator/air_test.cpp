// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The virtual tag on a real adapter.
#include "KVFobLink/KVCommonTool.h"
#include "tests/simulator/air_fixture.h"

namespace kvsim {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST_F(AirTagTest, RegistersBothObjectsAndSaysSo) {
  makeTag();
  ASSERT_TRUE(runUntil([this] { return tag->state() == AirState::OnAir; }));
  EXPECT_THAT(took(registered),
              ElementsAre("/org/bluez/hci90 RegisterApplication /kvfob/tag",
                          "/org/bluez/hci90 RegisterAdvertisement /kvfob/advertisement"));
  EXPECT_THAT(took(states), ElementsAre("on air: on the air as a1b2c3d4e5f6"));
  EXPECT_EQ(tag->reason(), "on the air as a1b2c3d4e5f6");
  daemon->set(kHci, kvtest::kAdapter, "Powered", true);
  EXPECT_THAT(took(states), IsEmpty()) << "only changes are told";
}

TEST_F(AirTagTest, OffersWhatTheTagHas) {
  putOnAir({.tag = {.battery = 90}});
  struct Property {
    const char* path;
    const char* interface;
    const char* name;
    const char* value;
  };
  // Service data: A1, product, battery, the address from its last byte on, power -12, model.
  const Property kProperties[] = {
      {kAdvertisementPath, kAdvertisement, "Type", "peripheral"},
      {kAdvertisementPath, kAdvertisement, "ServiceUUIDs", "FFE1 "},
      {kAdvertisementPath, kAdvertisement, "ServiceData", "FFE1=a10b5af6e5d4c3b2a1f403"},
      {kAdvertisementPath, kAdvertisement, "Discoverable", "1"},
      {kAdvertisementPath, kAdvertisement, "MinInterval", "100"},
      {kAdvertisementPath, kAdvertisement, "MaxInterval", "100"},
      {"/kvfob/tag/service0", kvtest::kService, "UUID", "7F280001-8204-F393-E0A9-E50E24DCCA9E"},
      {"/kvfob/tag/service0", kvtest::kService, "Primary", "1"},
      {kCommand, kvtest::kCharacteristic, "UUID", "7F280002-8204-F393-E0A9-E50E24DCCA9E"},
      {kCommand, kvtest::kCharacteristic, "Service", "/kvfob/tag/service0"},
      {kCommand, kvtest::kCharacteristic, "Flags", "read write notify "},
      {kCommand, kvtest::kCharacteristic, "Value", ""},
      {kDistance, kvtest::kCharacteristic, "Service", "/kvfob/tag/service1"},
      {kDistance, kvtest::kCharacteristic, "Flags", "write "},
      {kModelNumber, kvtest::kCharacteristic, "Flags", "read "},
      {"/kvfob/tag/service2/char2", kvtest::kCharacteristic, "UUID", "2A29"},
  };
  for (const Property& p : kProperties) {
    EXPECT_EQ(property(p.path, p.interface, p.name), p.value) << p.path << ' ' << p.name;
  }
}

TEST_F(AirTagTest, AnswersRequestsAsTheTagDoes) {
  putOnAir();
  EXPECT_EQ(read(kModelNumber, kFirst), "5669727475616c20746167");  // "Virtual tag"
  EXPECT_TRUE(tag->tag()->state().connected);
  EXPECT_EQ(subscribe(), "done");
  EXPECT_TRUE(tag->tag()->state().subscribed);
  EXPECT_EQ(read(kCommand, kFirst).size(), 32U);  // 16 bytes
  EXPECT_EQ(write(kDistance, kFirst, {0xEC}), "done");
  EXPECT_EQ(tag->tag()->state().distance, -20);
  EXPECT_EQ(write(kDistance, kFirst, {0xEC, 0x00}), "org.bluez.Error.Failed: 0x0d");
  EXPECT_EQ(write(kCommand, kFirst, {}), "org.bluez.Error.Failed: 0x80");
  tag->tag()->inject(KVData{0x00, 0xFF});
  EXPECT_THAT(took(notifications), ElementsAre("/kvfob/tag/service0/char0 00ff"));
  EXPECT_EQ(property(kCommand, kvtest::kCharacteristic, "Value"), "00ff");
  EXPECT_EQ(subscribe(false), "done");
  EXPECT_FALSE(tag->tag()->state().subscribed);
  EXPECT_EQ(call(kCommand, kvtest::kCharacteristic, "WriteValue",
                 [](auto* message) { sd_bus_message_append(message, "aya{sv}", 0, 0); }),
            "org.bluez.Error.NotPermitted: in use by another device");
}

TEST_F(AirTagTest, FaultsOfTheTagReachTheCentral) {
  putOnAir();
  auto& steps = tag->tag()->behaviour().steps;
  steps[Procedure::OpeningRead] = {StepFault::Mute, 1};
  EXPECT_EQ(read(kCommand, kFirst, 50ms), "silence");
  steps[Procedure::OpeningRead] = {StepFault::Delay, 1, 50ms};
  const auto before = queue->now();
  EXPECT_EQ(read(kCommand, kFirst).size(), 32U);
  EXPECT_GE(queue->now() - before, 50ms);
  // A drop takes the central off, at once or later.
  daemon->takeCalls();
  for (const auto after : {0ms, 50ms}) {
    steps[Procedure::OpeningRead] = {StepFault::Drop, 1, after};
    daemon->add(FakeBlueZ::devicePath(kFirst), kvtest::kDevice, {{"Connected", true}});
    const int drops = daemon->calls("Disconnect", kFirst);
    const auto start = queue->now();
    EXPECT_EQ(read(kCommand, kFirst, 20ms), "silence");
    EXPECT_TRUE(runUntil([&] { return daemon->calls("Disconnect", kFirst) > drops; }));
    EXPECT_GE(queue->now() - start, after);
    EXPECT_TRUE(runUntil([&] { return !tag->tag()->state().connected; }));
  }
}

TEST_F(AirTagTest, OneCentralAtATime) {
  putOnAir();
  daemon->add(FakeBlueZ::devicePath(kFirst), kvtest::kDevice, {{"Connected", true}});
  EXPECT_TRUE(runUntil([this] { return tag->tag()->state().connected; }));
  daemon->add(FakeBlueZ::devicePath(kSecond), kvtest::kDevice, {{"Connected", true}});
  EXPECT_EQ(read(kModelNumber, kSecond), "org.bluez.Error.NotPermitted: in use by another device");
  EXPECT_EQ(read(kModelNumber, kFirst).size(), 22U);
  setConnected(kSecond, false);
  settle();
  EXPECT_TRUE(tag->tag()->state().connected) << "the other one's end is not the first one's";
  setConnected(kFirst, false);
  settle();
  EXPECT_FALSE(tag->tag()->state().connected);
  EXPECT_EQ(read(kModelNumber, kSecond).size(), 22U);
  EXPECT_EQ(tag->tag()->state().connects, 2U);
  daemon->remove(FakeBlueZ::devicePath(kSecond));
  settle();
  EXPECT_FALSE(tag->tag()->state().connected);
  EXPECT_THAT(told, ElementsAre("a client connected", "the link ended", "a client connected",
                                "the link ended"));
}

TEST_F(AirTagTest, LateAnswerOfAnEarlierLinkIsNotSent) {
  putOnAir();
  // As in tag_test.cpp: a token with the client's half of the key, c0 to c7.
  const KVData token = {0x13, 0x07, 0x04, 0xD6, 0x21, 0xD1, 0x10, 0x86,
                        0x55, 0x57, 0xD2, 0x15, 0x32, 0x51, 0x1F, 0x91};
  const auto bind = [&](const char* device) {
    EXPECT_EQ(subscribe(), "done");
    KVData opening;
    tag->setObserver([&](const TagEvent& event) {
      if (event.kind == TagEventKind::OpeningSent) opening = event.plain;
    });
    read(kCommand, device);
    settle();
    EXPECT_EQ(write(kCommand, device, token), "done");
    KVData key(opening.begin() + 6, opening.begin() + 14);  // the tag's half
    for (std::uint8_t byte = 0xC0; byte < 0xC8; ++byte) key.push_back(byte);
    // Type, length, code of the bind request, password, fill.
    KVData frame = {0x00, 0x07, kBindCommand, 's', 'e', 'c', 'r', 'e', 't'};
    frame.resize(16);
    EXPECT_EQ(write(kCommand, device, *KVCommonTool::encryptWithData(frame, key)), "done");
    EXPECT_TRUE(tag->tag()->state().bound);
  };
  daemon->add(FakeBlueZ::devicePath(kFirst), kvtest::kDevice, {{"Connected", true}});
  tag->tag()->behaviour().answerDelay = 50ms;
  bind(kFirst);
  EXPECT_THAT(took(notifications), IsEmpty());
  EXPECT_TRUE(runUntil([this] { return !notifications.empty(); }));
  notifications.clear();
  bind(kFirst);
  setConnected(kFirst, false);
  daemon->add(FakeBlueZ::devicePath(kSecond), kvtest::kDevice, {{"Connected", true}});
  settle();
  queue->runFor(100ms);
  EXPECT_THAT(took(notifications), IsEmpty());
  EXPECT_TRUE(tag->tag()->state().connected);
}

TEST_F(AirTagTest, DevicesOfOtherAdaptersAreNoCentrals) {
  putOnAir();
  daemon->add(FakeBlueZ::devicePath(kFirst, "/org/bluez/hci9"), kvtest::kDevice,
              {{"Connected", true}});
  settle();
  EXPECT_FALSE(tag->tag()->state().connected);
}

TEST_F(AirTagTest, ChangedBatteryIsAdvertisedOnceTheAdapterIsOn) {
  AirTag& air = putOnAir();
  air.setBattery(7);
  EXPECT_THAT(took(refreshed), ElementsAre("a10b07f6e5d4c3b2a1f403"));
  daemon->powerOff();
  EXPECT_TRUE(runUntil([&] { return air.state() == AirState::Waiting; }));
  air.setBattery(6);
  EXPECT_THAT(took(refreshed), IsEmpty());
  daemon->set(kHci, kvtest::kAdapter, "Powered", true);
  EXPECT_TRUE(runUntil([&] { return air.state() == AirState::OnAir; }));
  EXPECT_THAT(took(refreshed), ElementsAre("a10b06f6e5d4c3b2a1f403"));
  EXPECT_THAT(registered, IsEmpty()) << "bluetoothd keeps what was registered";
  EXPECT_THAT(states, ElementsAre("waiting: the adapter hci90 is off",
                                  "on air: on the air as a1b2c3d4e5f6"));
  daemon->powerOff();
  EXPECT_TRUE(runUntil([&] { return air.state() == AirState::Waiting; }));
  daemon->set(kHci, kvtest::kAdapter, "Powered", true);
  EXPECT_TRUE(runUntil([&] { return air.state() == AirState::OnAir; }));
  EXPECT_THAT(took(refreshed), IsEmpty()) << "nothing has changed since";
}

TEST_F(AirTagTest, AdapterThatGoesOffEndsTheLinkItself) {
  putOnAir();
  read(kModelNumber, kFirst);
  daemon->set(kHci, kvtest::kAdapter, "Powered", false);
  ASSERT_TRUE(runUntil([this] { return tag->state() == AirState::Waiting; }));
  EXPECT_FALSE(tag->tag()->state().connected);
}

TEST_F(AirTagTest, WaitsForAnAdapterThatIsThereAndOnAndAdvertises) {
  daemon->remove(kHci);
  makeTag();
  const auto waitsFor = [&](const char* reason) {
    return runUntil([&] { return tag->reason() == reason; });
  };
  EXPECT_TRUE(waitsFor("there is no adapter hci90"));
  daemon->addAdapter(kHci, kAdapterAddress, /*powered=*/false);
  EXPECT_TRUE(waitsFor("the adapter hci90 is off"));
  daemon->set(kHci, kvtest::kAdapter, "Powered", true);
  EXPECT_TRUE(waitsFor("the adapter hci90 cannot advertise"));
  EXPECT_THAT(registered, IsEmpty());
  daemon->add(kHci, kAdvertisingManager, {});
  EXPECT_TRUE(waitsFor("on the air as a1b2c3d4e5f6"));
  daemon->remove(kHci);
  EXPECT_TRUE(waitsFor("there is no adapter hci90"));
  daemon.reset();
  EXPECT_TRUE(waitsFor("the Bluetooth service does not answer"));
}

TEST_F(AirTagTest, TakesTheAdapterThatWasAskedForByNameOrAddress) {
  daemon->addAdapter("/org/bluez/hci8", "00:00:00:00:00:08");
  daemon->add("/org/bluez/hci8", kAdvertisingManager, {});
  for (const char* wanted : {"hci90", "a1:b2:c3:d4:e5:f6"}) {
    makeTag({.adapter = wanted});
    ASSERT_TRUE(runUntil([this] { return tag->state() == AirState::OnAir; })) << wanted;
    EXPECT_THAT(took(registered)[0], HasSubstr("/org/bluez/hci90 ")) << wanted;
  }
}

TEST_F(AirTagTest, GoesOnWithAnotherAdapterIfAnyWillDo) {
  daemon->remove(kHci);
  makeTag({.adapter = ""});
  ASSERT_TRUE(runUntil([this] { return !tag->reason().empty(); }));
  EXPECT_EQ(tag->reason(), "there is no Bluetooth adapter");
  addAdapter();
  daemon->addAdapter("/org/bluez/hci91", "00:00:00:00:00:91");
  daemon->add("/org/bluez/hci91", kAdvertisingManager, {});
  ASSERT_TRUE(runUntil([this] { return tag->state() == AirState::OnAir; }));
  read(kModelNumber, kFirst);
  took(registered);
  daemon->remove(kHci);
  ASSERT_TRUE(runUntil([this] { return registered.size() == 2; }));
  EXPECT_THAT(registered[0], HasSubstr("/org/bluez/hci91 "));
  EXPECT_FALSE(tag->tag()->state().connected);
}

TEST_F(AirTagTest, EmptyAddressStandsForTheAdaptersOwn) {
  daemon->remove(kHci);
  makeTag({.adapter = "hci90", .tag = {.address = ""}});
  settle();
  EXPECT_FALSE(tag->tag());
  tag->pressButton();  // nothing to press yet
  tag->setBattery(5);
  addAdapter();
  ASSERT_TRUE(runUntil([this] { return tag->state() == AirState::OnAir; }));
  EXPECT_EQ(tag->tag()->address(), "a1b2c3d4e5f6");
  EXPECT_EQ(tag->tag()->spec().battery, 100);
}

TEST_F(AirTagTest, ComesBackWithTheService) {
  putOnAir();
  const auto linkUp = [this] {
    daemon->add(FakeBlueZ::devicePath(kFirst), kvtest::kDevice, {{"Connected", true}});
    EXPECT_TRUE(runUntil([this] { return tag->tag()->state().connected; }));
  };
  linkUp();
  daemon.reset();
  ASSERT_TRUE(runUntil([this] { return tag->state() == AirState::Waiting; }));
  EXPECT_FALSE(tag->tag()->state().connected);
  daemon = std::make_unique<FakeBlueZ>(queue, bus.address());
  ASSERT_TRUE(runUntil([this] { return daemon->ready(); }));
  addAdapter();
  EXPECT_TRUE(runUntil([this] { return tag->state() == AirState::OnAir; }));
  EXPECT_EQ(took(registered).size(), 2U);
  linkUp();
  EXPECT_EQ(read(kModelNumber, kFirst).size(), 22U);
}

TEST_F(AirTagTest, ComesBackWithTheBus) {
  putOnAir();
  bus.stop();
  ASSERT_TRUE(runUntil([this] { return tag->state() == AirState::Waiting; }));
  EXPECT_EQ(tag->reason(), "the system bus cannot be reached");
  daemon.reset();
  bus.start();
  daemon = std::make_unique<FakeBlueZ>(queue, bus.address());
  ASSERT_TRUE(runUntil([this] { return daemon->ready(); }));
  addAdapter();
  EXPECT_TRUE(runUntil([this] { return tag->state() == AirState::OnAir; }));
  EXPECT_EQ(registered.size(), 2U);
  openBus();
  EXPECT_EQ(read(kModelNumber, kFirst).size(), 22U);
}

TEST_F(AirTagTest, RegistersAgainWhatWasRefusedOrReleased) {
  daemon->on("RegisterAdvertisement", [this](const kv::BusCall& call) {
    tagName = sd_bus_message_get_sender(call.message());
    call.fail("org.bluez.Error.NotPermitted", "Maximum advertisements reached");
  });
  makeTag();
  ASSERT_TRUE(runUntil([this] { return !tag->reason().empty(); }));
  EXPECT_EQ(tag->reason(), "bluetoothd does not take the tag: Maximum advertisements reached");
  daemon->on("RegisterAdvertisement", [](const kv::BusCall& call) {
    // As good as a success: it is ours from before.
    call.fail("org.bluez.Error.AlreadyExists", "Already Exists");
  });
  const auto before = queue->now();
  daemon->set(kHci, kvtest::kAdapter, "Powered", true);  // as good as nothing
  settle();
  EXPECT_EQ(tag->state(), AirState::Waiting);
  EXPECT_TRUE(runUntil([this] { return tag->state() == AirState::OnAir; }));
  EXPECT_GE(queue->now() - before, 1s) << "not at once";
  // bluetoothd drops the advertisement.
  const int calls = daemon->calls("RegisterAdvertisement");
  EXPECT_EQ(call(kAdvertisementPath, kAdvertisement, "Release"), "done");
  daemon->set(kHci, kvtest::kAdapter, "Powered", true);
  EXPECT_TRUE(runUntil([&] { return daemon->calls("RegisterAdvertisement") > calls; }));
}

TEST_F(AirTagTest, OnAirOnlyOnceBothAreRegistered) {
  std::vector<kv::BusCall> waiting;
  for (const char* member : {"RegisterApplication", "RegisterAdvertisement"}) {
    daemon->on(member, [&](const kv::BusCall& call) { waiting.push_back(call); });
  }
  makeTag();
  ASSERT_TRUE(runUntil([&] { return waiting.size() == 2; }));
  for (const auto& call : waiting) {
    daemon->set(kHci, kvtest::kAdapter, "Powered", true);
    settle();
    EXPECT_THAT(states, IsEmpty());
    call.reply();
  }
  settle();
  EXPECT_THAT(states, ElementsAre("on air: on the air as a1b2c3d4e5f6"));
  EXPECT_EQ(waiting.size(), 2U);
}

TEST_F(AirTagTest, DeviceThatIsConnectedFromTheBeginning) {
  daemon->add(FakeBlueZ::devicePath(kFirst), kvtest::kDevice, {{"Connected", true}});
  settle();
  for (const char* address : {"", "a1b2c3d4e5f6"}) {
    makeTag({.adapter = "hci90", .tag = {.address = address}});
    ASSERT_TRUE(runUntil([this] { return tag->state() == AirState::OnAir; }));
    EXPECT_EQ(read(kModelNumber, kFirst).size(), 22U) << "it is the central";
    EXPECT_TRUE(tag->tag()->state().connected);
  }
}

TEST_F(AirTagTest, TaskMayOwnTheTag) {
  const std::weak_ptr<KVEventQueue> gone = [this] {
    const auto own = KVLinuxPlatform::makeEventQueue();
    auto air = std::make_shared<AirTag>(own, AirTagOptions{.busAddress = bus.address()});
    own->runFor(10ms);
    own->post([air] {});
    return own;
  }();
  EXPECT_TRUE(gone.expired());
}

TEST_F(AirTagTest, DroppedTagSaysNothingMoreAndEndsItsLink) {
  putOnAir();
  read(kModelNumber, kFirst);
  settle();
  const auto inner = tag->tag();
  told.clear();
  const int drops = daemon->calls("Disconnect");
  tag.reset();
  settle();
  EXPECT_FALSE(inner->state().connected);
  EXPECT_EQ(daemon->calls("Disconnect"), drops + 1);
  class NoLink final : public TagLink {
    void notify(GattHandle, KVData, std::chrono::nanoseconds) override {}
    void drop(std::chrono::nanoseconds) override {}
  } link;
  inner->connect(link);
  inner->disconnect();
  settle();
  EXPECT_THAT(told, IsEmpty());
  EXPECT_THAT(states, IsEmpty());
}

}  // namespace
}  // namespace kvsim

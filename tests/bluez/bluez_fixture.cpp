// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "tests/bluez/bluez_fixture.h"

#include <poll.h>

#include <algorithm>
#include <utility>

namespace kvtest {
namespace {

constexpr auto kPatience = 10s;

std::string hex(KVBytes bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace

void Recorder::add(std::string event, const std::optional<KVError>& error) {
  events.push_back(event + (error ? " !" + std::to_string(error->code) : ""));
  if (onEvent) {
    const auto call = onEvent;
    call(event);
  }
}

void Recorder::centralManagerDidUpdateState(KVCentral& central) {
  add("state " + std::to_string(central.state()));
}
void Recorder::didDiscoverPeripheral(KVCentral& /*central*/,
                                     const std::shared_ptr<KVPeripheral>& peripheral,
                                     const KVAdvertisement& advertisement,
                                     std::optional<std::int64_t> rssi) {
  found = peripheral;
  std::string data;
  for (const auto& entry : advertisement.serviceData) {
    data += ' ' + entry.uuid.string() + '=' + hex(entry.value);
  }
  add("found " + peripheral->identifier() + data + ' ' + (rssi ? std::to_string(*rssi) : "?"));
}
void Recorder::didConnectPeripheral(KVCentral& /*central*/,
                                    const std::shared_ptr<KVPeripheral>& peripheral) {
  add("connected " + peripheral->identifier());
}
void Recorder::didFailToConnectPeripheral(KVCentral& /*central*/,
                                          const std::shared_ptr<KVPeripheral>& peripheral,
                                          const std::optional<KVError>& error) {
  add("failed " + peripheral->identifier(), error);
}
void Recorder::didDisconnectPeripheral(KVCentral& /*central*/,
                                       const std::shared_ptr<KVPeripheral>& peripheral,
                                       const std::optional<KVError>& error) {
  add("disconnected " + peripheral->identifier(), error);
}
void Recorder::didDiscoverServices(KVPeripheral& peripheral, const std::optional<KVError>& error) {
  std::string names;
  for (const auto& service : peripheral.services()) {
    names += ' ' + service->uuid().string().substr(0, 8);
  }
  add("services" + names, error);
}
void Recorder::didDiscoverCharacteristicsForService(KVPeripheral& /*peripheral*/,
                                                    KVService& service,
                                                    const std::optional<KVError>& error) {
  std::string names;
  for (const auto& characteristic : service.characteristics()) {
    names += ' ' + characteristic->uuid().string().substr(0, 8);
  }
  add("characteristics" + names, error);
}
void Recorder::didUpdateValueForCharacteristic(
    KVPeripheral& /*peripheral*/, const std::shared_ptr<KVCharacteristic>& characteristic,
    const std::optional<KVError>& error) {
  const auto& value = characteristic->value();
  add("value " + (value ? hex(*value) : "absent"), error);
}
void Recorder::didWriteValueForCharacteristic(
    KVPeripheral& /*peripheral*/, const std::shared_ptr<KVCharacteristic>& /*characteristic*/,
    const std::optional<KVError>& error) {
  add("written", error);
}
void Recorder::didReadRSSI(KVPeripheral& /*peripheral*/, std::optional<std::int64_t> rssi,
                           const std::optional<KVError>& error) {
  add("rssi " + (rssi ? std::to_string(*rssi) : "absent"), error);
}

void BlueZTest::SetUp() {
  ASSERT_FALSE(bus.address().empty()) << "dbus-daemon did not start";
  options.busAddress = bus.address();
  options.retryFirst = 5ms;
  options.retryMost = 20ms;
  timing.dropHold = 20ms;
  timing.noAdapterGrace = 30ms;
}

void BlueZTest::TearDown() { central.reset(); }

void BlueZTest::startCentral() {
  central = kv::makeBlueZRadio(options, log, timing)->makeCentral(*recorder, queue);
}

void BlueZTest::startAll() {
  startDaemon();
  bluez->addAdapter();
  startCentral();
  ASSERT_TRUE(waitForEvent("state 5")) << log->text;
}

bool BlueZTest::waitFor(const std::function<bool()>& condition) {
  const auto limit = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    pollfd ready{queue->fd(), POLLIN, 0};
    poll(&ready, 1, 100);
    queue->dispatch();
  }
  return true;
}

bool BlueZTest::waitForEvent(const std::string& event) {
  return waitFor([&] {
    return std::any_of(recorder->events.begin(), recorder->events.end(),
                       [&](const std::string& each) { return each.starts_with(event); });
  });
}

bool BlueZTest::waitForCall(const std::string& member, int times) {
  return waitFor([&] { return bluez->calls(member) >= times; });
}

std::vector<std::string> BlueZTest::takeCalls(const std::vector<std::string>& members) {
  std::vector<std::string> calls = bluez->takeCalls();
  std::erase_if(calls, [&](const std::string& call) {
    return std::find(members.begin(), members.end(), call) == members.end();
  });
  return calls;
}

void BlueZTest::scanUntilFound(const std::string& address) {
  const int before = bluez->calls("StartDiscovery");
  central->scanForPeripherals({}, /*allowDuplicates=*/true);
  EXPECT_TRUE(waitForCall("StartDiscovery", before + 1));
  queue->dispatch();  // the answer goes out, and then
  bluez->advertise(address, kFrame);
  EXPECT_TRUE(waitForEvent("found " + address));
}

std::shared_ptr<KVPeripheral> BlueZTest::find(const std::string& address) {
  scanUntilFound(address);
  central->stopScan();
  EXPECT_TRUE(waitForCall("StopDiscovery"));
  recorder->found->setDelegate(recorder);
  takeEvents();
  bluez->takeCalls();
  return recorder->found;
}

std::shared_ptr<KVPeripheral> BlueZTest::link(const std::string& address) {
  auto tag = find(address);
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitForEvent("connected " + address)) << log->text;
  takeEvents();
  bluez->takeCalls();
  return tag;
}

std::shared_ptr<KVCharacteristic> BlueZTest::discover(const std::shared_ptr<KVPeripheral>& tag) {
  tag->discoverServices();
  EXPECT_TRUE(waitForEvent("services"));
  tag->discoverCharacteristics(tag->services().front());
  EXPECT_TRUE(waitForEvent("characteristics"));
  takeEvents();
  return tag->services().front()->characteristics().front();
}

}  // namespace kvtest

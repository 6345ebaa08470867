// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What the conformance suite of centrals needs of the implementation under test.
#ifndef TESTS_SUPPORT_CENTRAL_HARNESS_H
#define TESTS_SUPPORT_CENTRAL_HARNESS_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "KVFobLink/KVBluetoothError.h"
#include "KVFobLink/KVPlatform.h"

namespace kvtest {

using namespace std::chrono_literals;

/// A world with one adapter, which is on, and tags that are named by number.
///
/// Each tag offers one characteristic that can be read, written and subscribed to; it may offer
/// more besides. The operations act on the world at once or as the queue runs on, and only what the
/// world does by itself is theirs: nothing is advertised unless `advertise` is called.
class CentralHarness {
 public:
  static constexpr unsigned kEndless = std::numeric_limits<unsigned>::max();

  virtual ~CentralHarness() = default;

  virtual std::shared_ptr<KVRadio> radio() = 0;
  virtual std::shared_ptr<KVEventQueue> queue() = 0;

  /// How long anything that is to happen may take, on the queue's clock.
  virtual std::chrono::nanoseconds patience() const = 0;
  /// After how long nothing more comes of what was done so far. Longer than an attempt to connect
  /// that fails and the pause after it.
  virtual std::chrono::nanoseconds quiet() const = 0;
  /// The shortest pause between two attempts to connect that fail at once.
  virtual std::chrono::nanoseconds attemptPause() const = 0;
  /// Whether this platform can read the signal strength of a link.
  virtual bool readsRssi() const = 0;

  virtual void setPower(bool on) = 0;

  /// Puts a tag on the air, in range and silent, and returns its number.
  virtual std::size_t addTag() = 0;
  /// The tag is heard once.
  virtual void advertise(std::size_t tag) = 0;
  /// Makes the next `count` attempts to connect fail at once; 0 lets them succeed again.
  virtual void failConnects(std::size_t tag, unsigned count) = 0;
  /// How many attempts to connect there were.
  virtual unsigned connectAttempts(std::size_t tag) const = 0;
  /// The link is lost.
  virtual void dropLink(std::size_t tag) = 0;
  /// A mute tag answers no read and no write, not even once it is no longer mute.
  virtual void setMute(std::size_t tag, bool mute) = 0;
  /// From now on the tag answers each read and write with this error of the Attribute Protocol,
  /// or, with 0, as it should.
  virtual void refuse(std::size_t tag, std::uint8_t attError) = 0;
  /// Sends a notification to whoever is subscribed.
  virtual void notify(std::size_t tag, KVBytes value) = 0;
  /// Whether the tag had a subscriber when it was last read.
  virtual bool wasSubscribedWhenRead(std::size_t tag) const = 0;

  /// The service that advertisements name, the one with the characteristic, and the latter.
  virtual KVUUID advertisedService() const = 0;
  virtual KVUUID service() const = 0;
  virtual KVUUID characteristic() const = 0;
  /// A value that tags accept when it is written.
  virtual KVData acceptedValue() const = 0;
};

/// How an event with an error is written down.
inline std::string withCode(const std::string& event, std::int64_t code) {
  return event + ' ' + std::to_string(code);
}
inline const std::string kLinkLost = withCode("disconnected", KVBluetoothErrorLinkLost);
inline const std::string kAdapterLost = withCode("disconnected", KVBluetoothErrorAdapterLost);
inline const std::string kLinkGivenUp = withCode("disconnected", KVBluetoothErrorLinkGivenUp);

/// Writes down all events as short texts, and fails on one inside a request or another event.
class EventRecorder : public KVCentralDelegate, public KVPeripheralDelegate {
 public:
  std::vector<std::string> events;
  std::vector<std::shared_ptr<KVPeripheral>> found;
  /// Called with the text of each event, once it is written down.
  std::function<void(const std::string&)> hook;
  bool inRequest = false;

  void centralManagerDidUpdateState(KVCentral& central) override {
    note("state " + std::to_string(central.state()));
  }
  void didDiscoverPeripheral(KVCentral&, const std::shared_ptr<KVPeripheral>& peripheral,
                             const KVAdvertisement&, std::optional<std::int64_t>) override {
    found.push_back(peripheral);
    note("found");
  }
  void didConnectPeripheral(KVCentral&, const std::shared_ptr<KVPeripheral>& peripheral) override {
    EXPECT_EQ(peripheral->state(), KVPeripheralStateConnected);
    note("connected");
  }
  void didFailToConnectPeripheral(KVCentral&, const std::shared_ptr<KVPeripheral>&,
                                  const std::optional<KVError>& error) override {
    note("failed", error);
  }
  void didDisconnectPeripheral(KVCentral&, const std::shared_ptr<KVPeripheral>& peripheral,
                               const std::optional<KVError>& error) override {
    EXPECT_EQ(peripheral->state(), KVPeripheralStateDisconnected);
    note("disconnected", error);
  }
  void didDiscoverServices(KVPeripheral&, const std::optional<KVError>& error) override {
    note("services", error);
  }
  void didDiscoverCharacteristicsForService(KVPeripheral&, KVService&,
                                            const std::optional<KVError>& error) override {
    note("characteristics", error);
  }
  void didUpdateValueForCharacteristic(KVPeripheral&,
                                       const std::shared_ptr<KVCharacteristic>& characteristic,
                                       const std::optional<KVError>& error) override {
    values.push_back(characteristic->value());
    note("value", error);
  }
  void didWriteValueForCharacteristic(KVPeripheral&, const std::shared_ptr<KVCharacteristic>&,
                                      const std::optional<KVError>& error) override {
    note("write", error);
  }
  void didReadRSSI(KVPeripheral&, std::optional<std::int64_t> rssi,
                   const std::optional<KVError>& error) override {
    EXPECT_NE(rssi.has_value(), error.has_value());
    note("rssi", error);
  }

  std::vector<std::optional<KVData>> values;

 private:
  void note(std::string text, const std::optional<KVError>& error = std::nullopt) {
    EXPECT_FALSE(inRequest) << text << " inside a request";
    EXPECT_FALSE(inEvent_) << text << " inside an event";
    EXPECT_EQ(std::this_thread::get_id(), thread_);
    if (error) text = withCode(text, error->code);
    events.push_back(text);
    if (!hook) return;
    inEvent_ = true;
    hook(text);
    inEvent_ = false;
  }

  const std::thread::id thread_ = std::this_thread::get_id();
  bool inEvent_ = false;
};

/// The fixture: one central and the steps that the tests share.
class CentralConformance
    : public testing::TestWithParam<std::function<std::unique_ptr<CentralHarness>()>> {
 protected:
  using Texts = std::vector<std::string>;

  void makeCentral() {
    ask([&] { central = world->radio()->makeCentral(*recorder, world->queue()); });
  }
  /// Makes the central and hears a tag.
  void hearTag() {
    makeCentral();
    ASSERT_TRUE(settle([&] { return central->state() == KVCentralStatePoweredOn; }));
    ask([&] { central->scanForPeripherals({}, /*allowDuplicates=*/true); });
    passQuiet();
    tag = world->addTag();
    world->advertise(tag);
    ASSERT_TRUE(settle([&] { return !recorder->found.empty(); }));
    ask([&] { central->stopScan(); });
    peripheral = recorder->found.front();
    peripheral->setDelegate(recorder);
    passQuiet();
    recorder->events.clear();
  }
  void connect() {
    ask([&] { central->connectPeripheral(peripheral); });
    ASSERT_TRUE(settleUntil("connected"));
    recorder->events.clear();
  }
  /// Hears a tag, connects and discovers its characteristic.
  void connectAndDiscover() {
    hearTag();
    if (HasFatalFailure()) return;
    connect();
    ask([&] { peripheral->discoverServices(); });
    ASSERT_TRUE(settleUntil("services"));
    for (const auto& service : peripheral->services()) {
      if (service->uuid() != world->service()) continue;
      EXPECT_TRUE(service->characteristics().empty());
      ask([&] { peripheral->discoverCharacteristics(service); });
      ASSERT_TRUE(settleUntil("characteristics"));
      for (const auto& found : service->characteristics()) {
        if (found->uuid() == world->characteristic()) characteristic = found;
      }
    }
    ASSERT_TRUE(characteristic);
    recorder->events.clear();
  }

  /// Makes a request, during which no event may arrive.
  template <typename Request>
  void ask(Request request) {
    const bool outer = std::exchange(recorder->inRequest, true);
    request();
    recorder->inRequest = outer;
  }
  bool settle(const std::function<bool()>& condition) {
    const auto deadline = world->queue()->now() + world->patience();
    while (!condition() && world->queue()->now() < deadline) world->queue()->runFor(1ms);
    return condition();
  }
  bool settleUntil(const std::string& event) {
    return settle([&] { return count(event) > 0; });
  }
  std::ptrdiff_t count(const std::string& event) const {
    return std::count(recorder->events.begin(), recorder->events.end(), event);
  }
  void passQuiet() { world->queue()->runFor(world->quiet()); }
  /// What has been reported once everything has come to rest.
  const Texts& eventsInTheEnd() {
    passQuiet();
    return recorder->events;
  }

  std::unique_ptr<CentralHarness> world = GetParam()();
  std::shared_ptr<EventRecorder> recorder = std::make_shared<EventRecorder>();
  std::shared_ptr<KVCentral> central;
  std::size_t tag = 0;
  std::shared_ptr<KVPeripheral> peripheral;
  std::shared_ptr<KVCharacteristic> characteristic;
};

}  // namespace kvtest

#endif  // TESTS_SUPPORT_CENTRAL_HARNESS_H

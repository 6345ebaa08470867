// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// What every central promises, kept by the one on BlueZ.
#include "tests/support/central_conformance.h"

#include <array>
#include <cstdio>
#include <map>

#include "KVFobLink/KVLinuxPlatform.h"
#include "platform/linux/bluez/radio.h"
#include "tests/bluez/fake_bluez.h"
#include "tests/bluez/private_bus.h"

namespace kvtest {
namespace {

class BlueZHarness : public CentralHarness {
 public:
  BlueZHarness() {
    bluez_.addAdapter();
    bluez_.on("Connect", [this](const kv::BusCall& call) { connect(call); });
    bluez_.on("ReadValue", [this](const kv::BusCall& call) {
      const std::string address = FakeBlueZ::addressOf(call);
      subscribedWhenRead_[address] = bluez_.subscribed(address);
      answerRequest(call);
    });
    bluez_.on("WriteValue", [this](const kv::BusCall& call) { answerRequest(call); });
    KVBlueZOptions options;
    options.busAddress = bus_.address();
    options.requestTimeout = 1s;
    options.retryFirst = 20ms;
    options.retryMost = 20ms;
    kv::BlueZTiming timing;
    timing.dropHold = 20ms;
    radio_ = kv::makeBlueZRadio(options, nullptr, timing);
    const auto limit = queue_->now() + patience();
    while (!bluez_.ready() && queue_->now() < limit) queue_->runFor(1ms);
  }

  std::shared_ptr<KVRadio> radio() override { return radio_; }
  std::shared_ptr<KVEventQueue> queue() override { return queue_; }
  std::chrono::nanoseconds patience() const override { return 10s; }
  std::chrono::nanoseconds quiet() const override { return 150ms; }
  std::chrono::nanoseconds attemptPause() const override { return 16ms; }
  bool readsRssi() const override { return false; }

  void setPower(bool on) override {
    if (on) {
      bluez_.set(kHci, kAdapter, "Powered", true);
    } else {
      bluez_.powerOff();
    }
  }
  std::size_t addTag() override { return ++tags_; }
  void advertise(std::size_t tag) override { bluez_.advertise(address(tag), {0xa1, 0x0b}); }
  void failConnects(std::size_t tag, unsigned count) override { failures_[address(tag)] = count; }
  unsigned connectAttempts(std::size_t tag) const override {
    return static_cast<unsigned>(bluez_.calls("Connect", address(tag)));
  }
  void dropLink(std::size_t tag) override {
    bluez_.set(FakeBlueZ::devicePath(address(tag)), kDevice,
               {{"Connected", false}, {"ServicesResolved", false}});
  }
  void setMute(std::size_t tag, bool mute) override { mute_[address(tag)] = mute; }
  void refuse(std::size_t tag, std::uint8_t attError) override {
    refusal_[address(tag)] = attError;
  }
  void notify(std::size_t tag, KVBytes value) override {
    bluez_.notify(address(tag), KVData(value.begin(), value.end()));
  }
  bool wasSubscribedWhenRead(std::size_t tag) const override {
    return subscribedWhenRead_.at(address(tag));
  }
  KVUUID advertisedService() const override { return KVUUID(0xFFE1); }
  KVUUID service() const override {
    return *KVUUID::fromString("7f280001-8204-f393-e0a9-e50e24dcca9e");
  }
  KVUUID characteristic() const override {
    return *KVUUID::fromString("7f280002-8204-f393-e0a9-e50e24dcca9e");
  }
  KVData acceptedValue() const override { return {1, 2, 3}; }

 private:
  static std::string address(std::size_t tag) { return "AA:00:00:00:00:0" + std::to_string(tag); }

  void connect(const kv::BusCall& call) {
    unsigned& failures = failures_[FakeBlueZ::addressOf(call)];
    if (failures == 0) {
      bluez_.answer(call);
    } else {
      failures -= failures == kEndless ? 0 : 1;
      call.fail(kFailed, "le-connection-abort-by-local");
    }
  }
  void answerRequest(const kv::BusCall& call) {
    const std::string address = FakeBlueZ::addressOf(call);
    if (mute_[address]) return;
    const unsigned attError = refusal_[address];
    if (attError == 0) {
      bluez_.answer(call);
      return;
    }
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "Operation failed with ATT error: 0x%02x", attError);
    call.fail(kFailed, text.data());
  }

  PrivateBus bus_;
  std::shared_ptr<KVLinuxEventQueue> queue_ = KVLinuxPlatform::makeEventQueue();
  FakeBlueZ bluez_{queue_, bus_.address()};
  std::shared_ptr<KVRadio> radio_;
  std::size_t tags_ = 0;
  std::map<std::string, unsigned> failures_;
  std::map<std::string, bool> mute_;
  std::map<std::string, std::uint8_t> refusal_;
  std::map<std::string, bool> subscribedWhenRead_;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(BlueZ, CentralConformance,
                         testing::Values([] { return std::make_unique<BlueZHarness>(); }));

}  // namespace kvtest

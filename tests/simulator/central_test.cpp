// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobSimulator/KVFobSimulator.h"
#include "tests/support/central_conformance.h"

namespace kvsim {
namespace {

using namespace std::chrono_literals;

class SimulatedHarness final : public kvtest::CentralHarness {
 public:
  std::shared_ptr<KVRadio> radio() override { return world_.platform()->radio; }
  std::shared_ptr<KVEventQueue> queue() override { return world_.platform()->eventQueue; }
  std::chrono::nanoseconds patience() const override { return 40s; }
  std::chrono::nanoseconds quiet() const override { return 7s; }
  std::chrono::nanoseconds attemptPause() const override { return 187ms; }
  bool readsRssi() const override { return true; }

  void setPower(bool on) override {
    world_.setAdapterState(on ? KVCentralStatePoweredOn : KVCentralStatePoweredOff);
  }

  std::size_t addTag() override {
    tags_.push_back({world_.addTag()});
    const std::size_t index = tags_.size() - 1;
    tags_.back().tag->setObserver([this, index](const TagEvent& event) {
      if (event.kind != TagEventKind::OpeningSent) return;
      tags_[index].subscribedWhenRead = tags_[index].tag->state().subscribed;
    });
    return index;
  }

  void advertise(std::size_t tag) override { world_.advertise(tags_[tag].tag); }

  void failConnects(std::size_t tag, unsigned count) override {
    tags_[tag].failed = failedConnects(tag);
    tags_[tag].toFail = std::min(count, 1'000'000U);  // endless, and still counted
    connecting(tag) = {StepFault::Fail, tags_[tag].toFail};
  }

  unsigned connectAttempts(std::size_t tag) const override {
    return failedConnects(tag) + tags_[tag].tag->state().connects;
  }

  void dropLink(std::size_t tag) override { world_.dropLink(tags_[tag].tag); }

  void setMute(std::size_t tag, bool mute) override {
    for (const Procedure step : {Procedure::OpeningRead, Procedure::TokenWrite}) {
      tags_[tag].tag->behaviour().steps[step] = {StepFault::Mute, mute ? kAlways : 0};
    }
  }

  void refuse(std::size_t tag, std::uint8_t attError) override {
    for (const Procedure step : {Procedure::OpeningRead, Procedure::TokenWrite}) {
      tags_[tag].tag->behaviour().steps[step] = {
          .fault = StepFault::Fail, .times = attError == 0 ? 0 : kAlways, .attError = attError};
    }
  }

  void notify(std::size_t tag, KVBytes value) override { tags_[tag].tag->inject(value); }

  bool wasSubscribedWhenRead(std::size_t tag) const override {
    return tags_[tag].subscribedWhenRead;
  }

  KVUUID advertisedService() const override { return VirtualTag::serviceDataUuid(); }
  KVUUID service() const override {
    return *KVUUID::fromString("7F280001-8204-F393-E0A9-E50E24DCCA9E");
  }
  KVUUID characteristic() const override {
    return *KVUUID::fromString("7F280002-8204-F393-E0A9-E50E24DCCA9E");
  }
  // A token for the tag's address, as in tag_test.cpp.
  KVData acceptedValue() const override {
    return {0x13, 0x07, 0x04, 0xD6, 0x21, 0xD1, 0x10, 0x86,
            0x55, 0x57, 0xD2, 0x15, 0x32, 0x51, 0x1F, 0x91};
  }

 private:
  struct Entry {
    std::shared_ptr<VirtualTag> tag;
    unsigned failed = 0;  // attempts that failed before the last call of `failConnects`
    unsigned toFail = 0;
    bool subscribedWhenRead = false;
  };

  StepBehaviour& connecting(std::size_t tag) {
    return tags_[tag].tag->behaviour().steps[Procedure::Connecting];
  }
  unsigned failedConnects(std::size_t tag) const {
    const auto& steps = tags_[tag].tag->behaviour().steps;
    const auto found = steps.find(Procedure::Connecting);
    const unsigned left = found == steps.end() ? 0 : found->second.times;
    return tags_[tag].failed + tags_[tag].toFail - left;
  }

  SimulatedRadio world_{{.advertisingInterval = 0ns}};
  std::vector<Entry> tags_;
};

}  // namespace
}  // namespace kvsim

namespace kvtest {
INSTANTIATE_TEST_SUITE_P(Simulated, CentralConformance, testing::Values([] {
                           return std::make_unique<kvsim::SimulatedHarness>();
                         }));
}  // namespace kvtest

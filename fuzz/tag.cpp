// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// A hostile tag: any bytes, in any order, at any moment of the handshake and of commands; it drops,
// reconnects and replays. The application is a good one. In the end the tag behaves, and must work.
#include "fuzz/hostile_radio.h"
#include "fuzz/input.h"
#include "fuzz/watch.h"

namespace {

using namespace std::chrono_literals;
using kvfuzz::Input;
using kvfuzz::require;

constexpr int kMostSteps = 40;
const std::string kMac = kvfuzz::address(0);

enum Kind { kBind, kUnbind, kBell, kAlert, kDelay, kDistance };

class World {
 public:
  explicit World(Input& input) : input_(input) {
    manager_->setPassword(kvfuzz::kPassword);
    manager_->startScan([](const KVTrackers&) {});
    advertise();
  }
  ~World() {
    watch_.forgetUnbinds();
    manager_.reset();
    clock().runFor(31s);  // a bind request's time-out keeps its tracker
    watch_.expectNothingLeft();
  }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  void step() {
    switch (input_.ConsumeIntegralInRange(0, 9)) {
      case 0:
        hostile_.dropLink();
        break;
      case 1:
        hostile_.peripheral().notifyAnything();
        break;
      case 2:
        tag_.sendFrame(input_.ConsumeIntegral<std::uint8_t>(), kvfuzz::takeBytes(input_, 13));
        break;
      case 3:
        hostile_.setPowered(!hostile_.powered());
        break;
      case 4:
        hostile_.advertise(kvfuzz::takeBytes(input_, 12));
        break;
      case 5:
        bind();
        break;
      case 6:
      case 7:
        command();
        break;
      default:
        clock().runFor(input_.ConsumeIntegralInRange(0, 40'000) * 1ms);
    }
    clock().runFor(50ms);
    watch_.check(*manager_);
  }

  void expectUsable() {
    hostile_.peripheral().behave();
    hostile_.setPowered(true);
    hostile_.dropLink();
    manager_->removeAllTrackers();
    clock().runFor(45s);  // what was late has come by then
    manager_->startScan([](const KVTrackers&) {});
    require(clock().runUntil([this] { return scanned() != nullptr; }), "the tag is heard again");
    bool done = false;
    manager_->bindingVerify(scanned(), [&](bool success, const auto&) { done = success; });
    require(clock().runUntil([&] { return done; }), "it is bound");
    done = false;
    bound()->switchBellStatus(true, [&](bool success, const auto&) { done = success; });
    require(clock().runUntil([&] { return done && tag_.state().bellRinging; }), "it rings");
  }

 private:
  kvsim::VirtualEventQueue& clock() { return radio_.clock(); }
  std::shared_ptr<KVTracker> scanned() { return manager_->existTracker(kMac, /*bind=*/false); }
  std::shared_ptr<KVTracker> bound() { return manager_->existTracker(kMac, /*bind=*/true); }

  void advertise() {
    hostile_.advertise(tag_.advertisement());
    clock().postBackground(1s, [this] { advertise(); });
  }

  // Its completion comes within 30 seconds, once, unless another bind takes its place.
  void bind() {
    const auto target = scanned();
    if (!target) return;
    manager_->bindingVerify(target, completions_.replace(target.get(), kBind, 1));
    if (input_.ConsumeBool()) return;
    clock().runFor(31s);
    require(completions_.calls(target.get(), kBind) == 1, "a bind request ends");
  }

  void command() {
    const auto target = bound();
    if (!target) return;
    const auto answered = [&](Kind kind) {
      return completions_.replace(target.get(), kind, /*most=*/1'000);
    };
    switch (input_.ConsumeIntegralInRange(0, 4)) {
      case 0:
        return target->switchBellStatus(input_.ConsumeBool(), answered(kBell));
      case 1:
        return target->writeLossAlert(input_.ConsumeBool(), answered(kAlert));
      case 2:
        return target->writeLossDelay(input_.ConsumeIntegralInRange(0, 7000), answered(kDelay));
      case 3:
        return target->writeLossDistance(KVDistanceNear, answered(kDistance));
      default:
        return manager_->unbindTracker(kMac, completions_.replace(target.get(), kUnbind, 1'000));
    }
  }

  Input& input_;
  kvsim::SimulatedRadio radio_{{.advertisingInterval = 0s}};  // for its clock and platform
  kvsim::VirtualTag tag_{{.address = kMac}, {}, [](std::span<std::uint8_t> bytes) {
                           std::fill(bytes.begin(), bytes.end(), std::uint8_t{0x5A});
                         }};
  kvfuzz::HostileRadio hostile_{radio_.platform()->eventQueue, tag_, input_};
  kvfuzz::Watch watch_{radio_, std::shared_ptr<KVRadio>(std::shared_ptr<void>(), &hostile_)};
  kvfuzz::Completions completions_;
  std::shared_ptr<KVTrackerManager> manager_ = std::make_shared<KVTrackerManager>();
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  World world(input);
  for (int step = 0; step < kMostSteps && input.remaining_bytes() > 0; ++step) world.step();
  world.expectUsable();
  return 0;
}

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// A hostile application: any call on the manager and on trackers, at any time, and from inside any
// callback. The tags are good ones that move about.
#include "fuzz/input.h"
#include "fuzz/watch.h"

namespace {

using namespace std::chrono_literals;
using kvfuzz::Input;
using kvfuzz::require;

constexpr int kMostSteps = 60;
constexpr int kMostDepth = 3;
constexpr int kTags = kvfuzz::kAddresses - 1;  // the last address is nobody's

class World {
 public:
  explicit World(Input& input) : input_(input) {
    for (int i = 0; i < kTags; ++i) tags_.push_back(radio_.addTag({.address = kvfuzz::address(i)}));
    manager_->setPassword(kvfuzz::kPassword);
  }
  ~World() {
    ended_ = true;
    held_.clear();
    watch_.forgetUnbinds();
    manager_.reset();
    radio_.clock().runFor(31s);
    watch_.expectNothingLeft();
  }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  void step() {
    switch (input_.ConsumeIntegralInRange(0, 7)) {
      case 0:
        radio_.dropLink(tag());
        break;
      case 1:
        tag()->pressButton();
        break;
      case 2:
        radio_.setInRange(tag(), input_.ConsumeBool());
        break;
      case 3:
        radio_.setAdapterState(input_.ConsumeBool() ? KVCentralStatePoweredOn
                                                    : KVCentralStatePoweredOff);
        break;
      case 4:
        radio_.clock().runFor(input_.ConsumeIntegralInRange(0, 35'000) * 1ms);
        break;
      default:
        act();
    }
    radio_.clock().runFor(100ms);
  }

 private:
  static std::string mac(int i) { return "a1b2c3d4e5f" + std::to_string(i); }
  std::string anyMac() {
    return mac(input_.ConsumeIntegralInRange(0, kTags));
  }  // the last is nobody
  std::shared_ptr<kvsim::VirtualTag> tag() {
    return tags_[input_.ConsumeIntegralInRange<std::size_t>(0, kTags - 1)];
  }

  std::shared_ptr<KVTracker> tracker() {
    switch (input_.ConsumeIntegralInRange(0, 3)) {
      case 0:
        return manager_->existTracker(anyMac(), /*bind=*/true);
      case 1:
        return manager_->existTracker(anyMac(), /*bind=*/false);
      case 2:
        return held_.empty() ? nullptr : held_.back();
      default:
        return nullptr;
    }
  }

  // What every callback does: anything.
  void act() {
    if (ended_ || depth_ >= kMostDepth || input_.remaining_bytes() == 0) return;
    ++depth_;
    if (input_.ConsumeBool()) {
      actOnManager();
    } else if (const auto target = tracker()) {
      actOnTracker(*target);
      if (!ended_ && input_.ConsumeBool()) held_.push_back(target);
    }
    --depth_;
    watch_.check(*manager_);
  }

  // A callback that does anything, even replace itself, and then still uses what it holds.
  auto acting() {
    return [this, own = std::string(40, 'x')](const auto&...) {
      act();
      require(own.size() == 40 && own.back() == 'x', "a callback that runs is kept");
    };
  }

  void actOnManager() {
    const auto target = tracker();
    switch (input_.ConsumeIntegralInRange(0, 15)) {
      case 0:
        return manager_->startScan([this](const KVTrackers& list) {
          const std::size_t size = list.size();
          act();
          require(list.size() == size, "a list that was handed out does not change");
          for (const auto& each : list) require(each != nullptr, "a list holds trackers");
        });
      case 1:
        return manager_->stopScan();
      case 2:
        manager_->addTracker(anyMac());
        return;
      case 3:
        return manager_->removeTracker(anyMac());
      case 4:
        return manager_->removeAllTrackers();
      case 5:
        return manager_->connect(target);
      case 6:
        return manager_->disconnect(target);
      case 7:
        return manager_->bindingVerify(
            target, completions_.replace(target.get(), /*kind=*/0, /*most=*/1, acting()));
      case 8:
        return manager_->unbindTracker(anyMac(), acting());
      case 9:
        return manager_->setPassword(input_.ConsumeBool() ? std::optional<std::string>()
                                                          : kvfuzz::kPassword);
      case 10:
        return manager_->bindArray()->append(target);
      case 11:
        return manager_->bindArray()->remove(target);
      case 12:
        return manager_->setBindArray(std::make_shared<KVTrackerList>());
      case 13:
        return target ? manager_->scannedDict()->set(anyMac(), target)
                      : manager_->scannedDict()->erase(anyMac());
      case 14:
        return manager_->didChangeConnection(acting());
      default:
        return manager_->didChangeBluetooth(acting());
    }
  }

  void actOnTracker(KVTracker& target) {
    switch (input_.ConsumeIntegralInRange(0, 14)) {
      case 0:
        return target.switchBellStatus(input_.ConsumeBool(), acting());
      case 1:
        return target.writeLossAlert(input_.ConsumeBool(), acting());
      case 2:
        return target.writeLossDelay(input_.ConsumeIntegral<std::int32_t>(), acting());
      case 3:
        return target.writeLossDistance(input_.ConsumeIntegralInRange(0U, 4U), acting());
      case 4:
        return target.removeBindPassword(acting());
      case 5:
        return target.didConnectionChange(acting());
      case 6:
        return target.didReceive(acting());
      case 7:
        return target.didValueUpdate(acting());
      case 8:
        return target.updateData(1, anyMac());  // another address
      case 9:
        return target.setBound(input_.ConsumeBool());
      case 10:
        return target.setState(input_.ConsumeIntegralInRange(0, 3));
      case 11:
        return target.setPeripheral(nullptr);
      case 12:
        return target.initRSSITimerThread();
      case 13:
        return target.stopRSSITimer();
      default:
        held_.clear();
    }
  }

  Input& input_;
  kvsim::SimulatedRadio radio_{{.advertisingInterval = 2s}};
  kvfuzz::Watch watch_{radio_};
  kvfuzz::Completions completions_;
  std::vector<std::shared_ptr<kvsim::VirtualTag>> tags_;
  std::vector<std::shared_ptr<KVTracker>> held_;
  std::shared_ptr<KVTrackerManager> manager_ = std::make_shared<KVTrackerManager>();
  int depth_ = 0;
  bool ended_ = false;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  World world(input);
  for (int step = 0; step < kMostSteps && input.remaining_bytes() > 0; ++step) world.step();
  return 0;
}

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Hours of an application's life with several tags, in virtual time: all that goes wrong on the air
// goes wrong again and again, in an order that the seed decides. KVFOB_SOAK_HOURS sets how many; 8
// without it.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <iostream>
#include <random>
#include <sstream>

#include "KVFobLink/KVFobLink.h"
#include "KVFobSimulator/KVFobSimulator.h"
#include "tests/support/no_log.h"

namespace kvsim {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kTags = 5;
constexpr const char* kPassword = "open sesame";
constexpr const char* kOthers = "wrong word";
constexpr std::size_t kHeapSlack = 64 * 1024;

class Soak {
 public:
  explicit Soak(unsigned seed)
      : random_(seed), radio_({.seed = seed, .log = std::make_shared<kvtest::NoLog>()}) {
    KVPlatform::setCurrent(radio_.platform());
    manager_ = std::make_shared<KVTrackerManager>();
    manager_->startScan([](const KVTrackers&) {});
    for (std::size_t i = 0; i < kTags; ++i) {
      add(i);
      bind(i);
    }
  }
  ~Soak() {
    manager_->removeAllTrackers();
    manager_.reset();
    run(31s);  // a bind request's time-out keeps its tracker
    KVPlatform::setCurrent(nullptr);
    for (const auto& tracker : made_) EXPECT_TRUE(tracker.expired());
  }
  Soak(const Soak&) = delete;
  Soak& operator=(const Soak&) = delete;

  void liveFor(std::chrono::nanoseconds span) {
    using Action = void (Soak::*)(std::size_t);
    constexpr Action kActions[] = {
        &Soak::leave,   &Soak::move,       &Soak::dropInHandshake, &Soak::command, &Soak::command,
        &Soak::command, &Soak::powerCycle, &Soak::press,           &Soak::lose,    &Soak::rebind};
    for (const auto end = now() + span; now() < end && !::testing::Test::HasFailure();) {
      (this->*kActions[pick(std::size(kActions))])(pick(kTags));
      run(pick(30'000) * 1ms);
    }
    for (std::size_t i = 0; i < kTags; ++i) expectUsable(i);
    EXPECT_EQ(manager_->bindTrackers()->size(), kTags);
    EXPECT_EQ(manager_->scannedTrackers().size(), 0U);
    std::erase_if(made_, [](const auto& tracker) { return tracker.expired(); });
    EXPECT_LE(made_.size(), kTags);
  }

  std::string summary() const {
    std::ostringstream text;
    text << links_ << " links, " << sessions_ << " sessions, " << drops_ << " ends of links, "
         << commands_ << " commands, " << answers_ << " answers, " << refused_
         << " refused passwords, " << presses_ << " presses, " << readings_ << " signal strengths";
    return text.str();
  }

 private:
  std::chrono::nanoseconds now() const { return radio_.clock().now(); }
  void run(std::chrono::nanoseconds span) { radio_.clock().runFor(span); }
  std::size_t pick(std::size_t count) { return random_() % count; }
  static std::string address(std::size_t i) { return "a1b2c3d4e5f" + std::to_string(i); }

  std::shared_ptr<KVTracker> tracker(std::size_t i, bool bound = true) {
    return manager_->existTracker(address(i), bound);
  }
  bool connected(std::size_t i) {
    return tracker(i) && tracker(i)->connection() == KVConnectionConnected;
  }

  void add(std::size_t i) {
    tags_[i] = radio_.addTag({.address = address(i)});
    tags_[i]->setObserver([this](const TagEvent& event) {
      links_ += event.kind == TagEventKind::Connected;
      drops_ += event.kind == TagEventKind::Disconnected;
      sessions_ += event.kind == TagEventKind::PasswordAccepted;
      refused_ += event.kind == TagEventKind::PasswordRejected;
    });
  }

  // Whether the tag took the password; by way of the tracker that the scan has made.
  bool tryBind(std::size_t i, const char* password) {
    if (!radio_.clock().runUntil([&] { return tracker(i, /*bound=*/false) != nullptr; })) {
      return false;
    }
    manager_->setPassword(password);
    std::optional<bool> result;
    const auto target = tracker(i, /*bound=*/false);
    made_.push_back(target);
    manager_->bindingVerify(target, [&](bool success, const auto&) { result = success; });
    radio_.clock().runUntil([&] { return result.has_value(); });
    if (result != true) return false;
    target->didReceive([this](std::int64_t) { ++presses_; });
    target->didValueUpdate([this] { ++readings_; });
    return true;
  }
  void bind(std::size_t i) {
    for (int attempt = 0; attempt < 5; ++attempt) {
      if (tryBind(i, kPassword)) return;
    }
    ADD_FAILURE() << "tag " << i << " is not to be bound";
  }

  // ---- What happens ----

  void leave(std::size_t i) {
    radio_.setInRange(tags_[i], /*inRange=*/false);
    run(pick(120'000) * 1ms);
    radio_.setInRange(tags_[i], /*inRange=*/true);
  }
  void move(std::size_t i) { radio_.setRssi(tags_[i], -40 - static_cast<int>(pick(50))); }
  void dropInHandshake(std::size_t i) {
    constexpr Procedure kSteps[] = {Procedure::Connecting,  Procedure::ServiceDiscovery,
                                    Procedure::Subscribe,   Procedure::CharacteristicDiscovery,
                                    Procedure::OpeningRead, Procedure::InformationRead,
                                    Procedure::TokenWrite,  Procedure::BindWrite,
                                    Procedure::BindAnswer};
    tags_[i]->behaviour().steps[kSteps[pick(std::size(kSteps))]] = {StepFault::Drop, 1};
    radio_.dropLink(tags_[i]);
  }
  void command(std::size_t i) {
    if (!connected(i)) return;
    const std::size_t fault = pick(4);
    auto& steps = tags_[i]->behaviour().steps;
    if (fault == 0) steps[Procedure::CommandWrite] = {StepFault::Drop, 1};
    if (fault == 1) steps[Procedure::CommandAnswer] = {StepFault::Drop, 1};
    ++commands_;
    const auto answered = [this](bool success, const auto&) { answers_ += success; };
    switch (pick(4)) {
      case 0:
        return tracker(i)->switchBellStatus(pick(2) == 0, answered);
      case 1:
        return tracker(i)->writeLossAlert(pick(2) == 0, answered);
      case 2:
        return tracker(i)->writeLossDelay(static_cast<std::int64_t>(pick(7001)), answered);
      default:
        return tracker(i)->writeLossDistance(KVDistanceFar + pick(3), answered);
    }
  }
  // At times while a link is being made.
  void powerCycle(std::size_t i) {
    if (pick(2) == 0) {
      radio_.dropLink(tags_[i]);
      run(pick(300) * 1ms);
    }
    radio_.setAdapterState(KVCentralStatePoweredOff);
    run(pick(20'000) * 1ms);
    radio_.setAdapterState(KVCentralStatePoweredOn);
  }
  void press(std::size_t i) { tags_[i]->pressButton(); }
  // Somebody else has bound the tag, until he lets go of it.
  void lose(std::size_t i) {
    tags_[i]->behaviour().commands[kBindCommand].status = 1;
    radio_.dropLink(tags_[i]);
    EXPECT_TRUE(radio_.clock().runUntil(
        [&] { return tracker(i)->connection() == KVConnectionVerifyFailed; }));
    ++refused_;
    tags_[i]->behaviour().commands.clear();
    radio_.dropLink(tags_[i]);
  }
  void rebind(std::size_t i) {
    manager_->unbindTracker(address(i), [](bool, const auto&) {});
    if (!radio_.clock().runUntil([&] { return !tracker(i); }, 10s)) {
      // Lost with its link: the request that waits for an answer would hold the tracker for ever.
      return tracker(i)->setPasswordRemoveBlock({});
    }
    if (tags_[i]->state().passwordSet) {
      EXPECT_FALSE(tryBind(i, kOthers));
    }
    bind(i);
  }

  void expectUsable(std::size_t i) {
    tags_[i]->behaviour().steps.clear();
    EXPECT_TRUE(radio_.clock().runUntil([&] { return connected(i); }, 2min)) << "tag " << i;
    if (!connected(i)) return;
    bool rings = false;
    tracker(i)->switchBellStatus(/*status=*/true,
                                 [&](bool success, const auto&) { rings = success; });
    EXPECT_TRUE(radio_.clock().runUntil([&] { return rings; })) << "tag " << i;
    EXPECT_TRUE(tags_[i]->state().bellRinging);
    tracker(i)->switchBellStatus(/*status=*/false, {});
    run(1s);
  }

  std::mt19937 random_;
  SimulatedRadio radio_;
  std::shared_ptr<KVTrackerManager> manager_;
  std::shared_ptr<VirtualTag> tags_[kTags];
  std::vector<std::weak_ptr<KVTracker>> made_;
  unsigned links_ = 0, sessions_ = 0, drops_ = 0, refused_ = 0;
  unsigned commands_ = 0, answers_ = 0, presses_ = 0, readings_ = 0;
};

TEST(Soak, HoursOfTrouble) {
  const char* given = std::getenv("KVFOB_SOAK_HOURS");
  const int hours = given != nullptr ? std::atoi(given) : 8;
  Soak soak(/*seed=*/1);
  soak.liveFor(1h);
  const std::string first = soak.summary();
  const std::size_t heap = mallinfo2().uordblks;
  for (int hour = 1; hour < hours; ++hour) soak.liveFor(1h);
  EXPECT_LT(mallinfo2().uordblks, heap + kHeapSlack);
  std::cout << "soak: " << hours << " h: " << soak.summary() << '\n';

  Soak again(/*seed=*/1);
  again.liveFor(1h);
  EXPECT_EQ(again.summary(), first);
}

}  // namespace
}  // namespace kvsim

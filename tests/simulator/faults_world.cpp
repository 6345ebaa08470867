// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "tests/simulator/faults_world.h"

#include <gtest/gtest.h>

#include "tests/support/no_log.h"

namespace kvsim {
namespace {

using namespace std::chrono_literals;

constexpr auto kUnderWay = 100ms;     // how long a step lasts that something else falls into
constexpr auto kEveryTimeOut = 120s;  // longer than those of binding, requests and attempts
constexpr auto kAdapterOffFor = 5s;

std::uint8_t commandOf(Operation operation) {
  if (operation == Operation::Ring) return kBellCommand;
  return operation == Operation::Unbind ? kRemovePasswordCommand : kBindCommand;
}

const char* nameOf(std::uint64_t connection) {
  switch (connection) {
    case KVConnectionDisconnect:
      return "disconnected";
    case KVConnectionConnecting:
      return "connecting";
    case KVConnectionConnected:
      return "connected";
    default:
      return "password rejected";
  }
}

std::string seconds(std::chrono::nanoseconds span) {
  return std::to_string(std::chrono::round<std::chrono::seconds>(span).count()) + " s";
}

}  // namespace

bool FailingCipher::aes128Block(std::span<const std::uint8_t, 16> key,
                                std::span<const std::uint8_t, 16> in,
                                std::span<std::uint8_t, 16> out, bool encrypt) const {
  return --countdown_ != 0 && real_->aes128Block(key, in, out, encrypt);
}

FaultsWorld::FaultsWorld() : radio_({.log = std::make_shared<kvtest::NoLog>()}) {
  auto platform = std::make_shared<KVPlatform>(*radio_.platform());
  cipher_ = std::make_shared<FailingCipher>(platform->cipher);
  platform->cipher = cipher_;
  KVPlatform::setCurrent(platform);
  tag_ = radio_.addTag();
  tag_->setObserver([this](const TagEvent& event) {
    const bool sent =
        event.kind == TagEventKind::OpeningSent || event.kind == TagEventKind::AnswerSent;
    if (sent) lastSent_ = event.wire;
  });
  manager_ = std::make_shared<KVTrackerManager>();
  manager_->setPassword("secret");
  manager_->didChangeBluetooth([this](std::int64_t state) {
    saw(state == KVCentralStatePoweredOn ? "adapter on" : "adapter off");
  });
  radio_.clock().runFor(1ms);  // the first report of the adapter's state
}

FaultsWorld::~FaultsWorld() {
  recording_ = false;
  manager_->removeAllTrackers();
  manager_.reset();
  // An unbind that was never answered keeps its tracker for as long as it may be.
  if (tracker_) tracker_->setPasswordRemoveBlock({});
  const std::weak_ptr<KVTracker> weak = std::exchange(tracker_, nullptr);
  radio_.clock().runFor(kEveryTimeOut);
  EXPECT_TRUE(weak.expired());
  KVPlatform::setCurrent(nullptr);
}

void FaultsWorld::saw(const std::string& what) {
  if (!recording_) return;
  const std::string when = seconds(radio_.clock().now() - since_);
  if (!seen_.empty() && seen_.back().when == when) {
    seen_.back().what += ", " + what;
  } else {
    seen_.push_back({when, what});
  }
}

// "0 s: disconnected, connecting; 30 s: connected, connected"
std::string FaultsWorld::account() const {
  std::string text;
  for (const Moment& moment : seen_) {
    text += (text.empty() ? "" : "; ") + moment.when + ": " + moment.what;
  }
  return text.empty() ? "nothing" : text;
}

KVResultCallback FaultsWorld::result(const char* what) {
  return [this, what](bool success, const std::optional<KVError>& error) {
    EXPECT_NE(success, error.has_value());
    saw(success ? what : "\"" + error->domain + "\" " + std::to_string(error->code));
  };
}

void FaultsWorld::scan() {
  manager_->startScan([this](const KVTrackers& trackers) {
    EXPECT_EQ(trackers.size(), 1U);
    if (!tracker_) saw("found");
    tracker_ = trackers[0];
  });
}

void FaultsWorld::bind() {
  tracker_->didConnectionChange([this](std::uint64_t connection) { saw(nameOf(connection)); });
  manager_->bindingVerify(tracker_, result("bound"));
}

void FaultsWorld::start(Operation operation) {
  switch (operation) {
    case Operation::Scan:
      return scan();
    case Operation::Bind:
      return bind();
    case Operation::ComeBack:
      return radio_.dropLink(tag_);
    case Operation::Ring:
      return tracker_->switchBellStatus(/*status=*/true, result("rings"));
    case Operation::SetDistance:
      return tracker_->writeLossDistance(KVDistanceNear, result("done"));
    case Operation::ReadSignal:
      return tracker_->didValueUpdate([this] {
        saw("reading");
        tracker_->didValueUpdate({});
      });
    case Operation::Unbind:
      return manager_->unbindTracker(tag_->address(), result("unbound"));
  }
}

void FaultsWorld::armScan(Fault fault) {
  switch (fault) {
    case Fault::Silence:
      radio_.setInRange(tag_, /*inRange=*/false);
      return;
    case Fault::Garbage:
      return radio_.advertise(tag_, {{VirtualTag::serviceDataUuid(), KVData(11, 0x5A)}}, -50);
    case Fault::Duplicate:
      return radio_.setAir({.duplicated = 1});
    default:
      return switchAdapter();
  }
}

void FaultsWorld::switchAdapter() {
  radio_.setAdapterState(KVCentralStatePoweredOff);
  radio_.clock().runFor(kAdapterOffFor);
  radio_.setAdapterState(KVCentralStatePoweredOn);
}

void FaultsWorld::arm(const Trouble& trouble) {
  const Procedure step = trouble.place.step;
  const bool answer = trouble.place.isAnswer();
  TagBehaviour& tag = tag_->behaviour();
  CommandBehaviour& command = tag.commands[commandOf(trouble.place.operation)];
  const auto at = [&](StepFault fault, std::chrono::nanoseconds after = 0s) {
    tag.steps[step] = {.fault = fault, .times = 1, .after = after};
  };
  switch (trouble.fault) {
    case Fault::Drop:
      return at(StepFault::Drop);
    case Fault::Silence:
      return at(StepFault::Mute);
    case Fault::Refusal:
      if (answer) {
        command.status = 1;
        return;
      }
      return at(step == Procedure::Connecting ? StepFault::Refuse : StepFault::Fail);
    case Fault::Garbage:
      if (answer) command.fault = AnswerFault::Corrupt;
      if (step == Procedure::ServiceDiscovery) tag.commandService = false;
      if (step == Procedure::CharacteristicDiscovery) tag.commandCharacteristics = 0;
      return at(StepFault::Delay, kUnderWay);
    case Fault::Duplicate:
      if (answer) {
        tag.duplicateNotifications = true;
        return;
      }
      return at(StepFault::Delay, kUnderWay);
    case Fault::Reorder:
      // The answer comes before the write that asks for it is confirmed.
      tag.steps[step == Procedure::BindAnswer ? Procedure::BindWrite : Procedure::CommandWrite] = {
          .fault = StepFault::Delay, .times = 1, .after = 1s};
      return;
    case Fault::AdapterOff:
      return at(StepFault::Delay, kUnderWay);
    case Fault::CipherFailure:
      return cipher_->failCall(trouble.place.cipherCall());
  }
}

// What happens once the step is under way.
void FaultsWorld::strike(const Trouble& trouble) {
  const auto armed = tag_->behaviour().steps.find(trouble.place.step);
  if (armed == tag_->behaviour().steps.end()) return;
  ASSERT_TRUE(radio_.clock().runUntil([&] { return armed->second.times == 0; }));
  if (trouble.fault == Fault::Garbage) tag_->inject(KVData(16, 0x5A));
  if (trouble.fault == Fault::Duplicate) tag_->inject(KVData(lastSent_));
  if (trouble.fault == Fault::AdapterOff) switchAdapter();
}

std::string FaultsWorld::run(const Trouble& trouble) {
  const Operation operation = trouble.place.operation;
  if (operation != Operation::Scan) find();
  if (operation > Operation::Bind) {
    bind();
    radio_.clock().runUntil([this] { return tracker_->bound(); });
  }
  recording_ = true;
  since_ = radio_.clock().now();
  if (operation == Operation::Scan) {
    scan();
    armScan(trouble.fault);
  } else {
    arm(trouble);
    start(operation);
    strike(trouble);
  }
  radio_.clock().runFor(kEveryTimeOut);
  recording_ = false;
  return account();
}

void FaultsWorld::find() {
  tracker_.reset();
  scan();
  EXPECT_TRUE(radio_.clock().runUntil([this] { return tracker_ != nullptr; }));
  manager_->stopScan();
}

bool FaultsWorld::works() {
  if (manager_->bindTrackers()->size() != 1) return false;
  if (tracker_->connection() != KVConnectionConnected) return false;
  int rung = 0;
  tracker_->switchBellStatus(/*status=*/true, [&](bool success, const auto&) { rung += success; });
  radio_.clock().runFor(1s);
  tracker_->setRingBlock({});
  return rung == 1 && tag_->state().bellRinging;
}

std::string FaultsWorld::recover() {
  tag_->behaviour() = {};
  radio_.setAir({});
  radio_.setInRange(tag_, /*inRange=*/true);
  if (works()) return "by itself";
  if (manager_->existTracker(tag_->address(), /*bind=*/true)) {
    manager_->disconnect(tracker_);
    radio_.clock().runFor(kEveryTimeOut);
    return works() ? "when the application drops the link" : "never";
  }
  if (!tracker_ || !manager_->existTracker(tag_->address(), /*bind=*/false)) find();
  bind();
  radio_.clock().runFor(kEveryTimeOut);
  return works() ? "at the next bind request" : "never";
}

}  // namespace kvsim

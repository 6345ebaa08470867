// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/base/text.h"
#include "apps/kvfob/demo/demo.h"

namespace kvfob {
namespace {

constexpr const char* kOwnPassword = "my-password";
constexpr const char* kWrongPassword = "wrong";
constexpr std::int64_t kDelay = 600;

}  // namespace

std::string Demo::scan() {
  manager_->startScan([](const KVTrackers&) {});
  if (!wait(
          [this] { return manager_->existTracker(tag_->address(), /*bind=*/false) != nullptr; })) {
    return "the scan does not hear the tag";
  }
  tracker_ = manager_->existTracker(tag_->address(), /*bind=*/false);
  show("advertised: " + hex(tag_->advertisement(), /*spaced=*/true));
  show("decoded:    address " + *tracker_->mac() + ", battery " +
       std::to_string(tracker_->battery()) + ", model " + std::to_string(tracker_->model()) + ", " +
       std::to_string(tracker_->rssi()) + " dBm");
  return tracker_->battery() == tag_->spec().battery && tracker_->model() == *tag_->spec().model
             ? ""
             : "the advertisement was decoded wrongly";
}

std::string Demo::levels() {
  struct Place {
    std::int64_t rssi;
    std::uint64_t level;
  };
  for (const auto& [rssi, level] :
       {Place{-82, KVDistanceFar}, {-68, KVDistanceMiddle}, {-50, KVDistanceNear}}) {
    radio_.setRssi(tag_, rssi);
    if (!wait([this, wanted = rssi] { return tracker_->rssi() == wanted; })) {
      return "the signal strength is not followed";
    }
    show(std::to_string(rssi) + " dBm: " + std::string(levelName(tracker_->distance())));
    if (tracker_->distance() != level) return "the level is wrong";
  }
  return "";
}

std::string Demo::tryBind() {
  std::string result = "no answer to the bind request";
  bool answered = false;
  manager_->bindingVerify(tracker_, [&](bool success, const auto& error) {
    answered = true;
    result = success ? "" : error->domain;
  });
  const bool done = wait([&] { return answered; }, std::chrono::seconds(31));
  // The request has an end of its own, but a signal may come before it.
  if (!done) tracker_->setBindingBlock({});
  return result;
}

std::string Demo::refusedPassword() {
  // A tag that somebody else has bound.
  const auto other = radio_.addTag(
      {.address = "b0b0b0b0b0b0", .battery = 40, .password = std::string("somebody")});
  other->setObserver([this](const auto& event) { show(event); });
  const auto find = [&] { return manager_->existTracker(other->address(), /*bind=*/false); };
  if (!wait([&] { return find() != nullptr; })) return "the other tag is not heard";
  const auto mine = std::exchange(tracker_, find());
  manager_->setPassword(kWrongPassword);
  const auto result = tryBind();
  manager_->disconnect(tracker_);
  const bool dropped = wait([&] { return !other->state().connected; });
  const bool bound = tracker_->bound() || other->state().bound;
  tracker_ = mine;
  other->setObserver({});
  radio_.removeTag(other);
  if (result != "error password." || bound) return "the tag did not refuse: \"" + result + "\"";
  show("the library reports: \"" + result + "\"");
  return dropped ? "" : "the link was not dropped";
}

std::string Demo::bind() {
  manager_->setPassword(kOwnPassword);
  if (auto wrong = tryBind(); !wrong.empty()) return wrong;
  manager_->stopScan();
  const auto& state = tag_->state();
  if (!state.passwordSet || !state.bound) return "the tag has no password";
  if (!tracker_->bound() || manager_->bindTrackers()->size() != 1) return "it is not registered";
  return tracker_->connection() == KVConnectionConnected ? "" : "it is not connected";
}

std::string Demo::ring() {
  auto wrong = ask([this](auto done) { tracker_->switchBellStatus(/*status=*/true, done); });
  if (!wrong.empty()) return wrong;
  return tag_->state().bellRinging ? "" : "the tag's bell does not ring";
}

std::string Demo::silence() {
  auto wrong = ask([this](auto done) { tracker_->switchBellStatus(/*status=*/false, done); });
  if (!wrong.empty()) return wrong;
  return tag_->state().bellRinging ? "the tag's bell still rings" : "";
}

std::string Demo::alert() {
  auto wrong = ask([this](auto done) { tracker_->writeLossAlert(/*on=*/true, done); });
  if (!wrong.empty()) return wrong;
  return tag_->state().alertOn ? "" : "the tag's loss alert is off";
}

std::string Demo::delay() {
  auto wrong = ask([this](auto done) { tracker_->writeLossDelay(kDelay, done); });
  if (!wrong.empty()) return wrong;
  return tag_->state().lossDelay == kDelay ? "" : "the tag has another delay";
}

std::string Demo::distance() {
  auto wrong = ask([this](auto done) { tracker_->writeLossDistance(KVDistanceMiddle, done); });
  if (!wrong.empty()) return wrong;
  return tag_->state().distance == -8 ? "" : "the tag has another distance";
}

std::string Demo::liveRssi() {
  radio_.setRssi(tag_, -76);
  if (!wait([this] { return tracker_->rssi() == -76; })) return "the link's signal is not read";
  show("-76 dBm: " + std::string(levelName(tracker_->distance())));
  return tracker_->distance() == KVDistanceFar ? "" : "the level is wrong";
}

std::string Demo::button() {
  std::int64_t received = 0;
  tracker_->didReceive([&](std::int64_t event) { received = event; });
  tag_->pressButton();
  const bool arrived = wait([&] { return received != 0; });
  tracker_->didReceive({});
  return arrived && received == 1 ? "" : "the button is not heard";
}

std::string Demo::reconnect() {
  const auto sessions = tag_->state().sessions;
  bool lost = false;
  tracker_->didConnectionChange(
      [&](std::uint64_t value) { lost = lost || value == KVConnectionDisconnect; });
  radio_.dropLink(tag_);
  const bool back = wait([&] { return lost && tracker_->connection() == KVConnectionConnected; });
  tracker_->didConnectionChange({});
  if (!back) return "the link does not come back";
  return tag_->state().sessions == sessions + 1 ? "" : "the tag did not accept the password again";
}

std::string Demo::unbind() {
  auto wrong =
      ask([this](auto done) { manager_->unbindTracker(tag_->address(), std::move(done)); });
  if (!wrong.empty()) return wrong;
  if (tag_->state().passwordSet) return "the tag kept its password";
  if (!wait([this] { return !tag_->state().connected; })) return "the link was not dropped";
  return manager_->bindTrackers()->empty() ? "" : "it is still registered";
}

}  // namespace kvfob

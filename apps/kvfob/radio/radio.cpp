// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/radio/radio.h"

#include <chrono>
#include <iostream>
#include <utility>

#include "KVFobLink/KVLinuxPlatform.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;

// What the radio of this machine reports begins with this.
constexpr std::string_view kRadioPrefix = "bluez: ";

class Log final : public KVLog {
 public:
  explicit Log(LogLevel level) : level_(level) {}
  void write(std::string_view line) override {
    if (level_ == LogLevel::Off) return;
    if (level_ == LogLevel::Radio && !line.starts_with(kRadioPrefix)) return;
    std::cerr << std::string("kvfob: log: ").append(line).append("\n");
  }

 private:
  LogLevel level_;
};

}  // namespace

std::shared_ptr<KVLog> makeLog(LogLevel level) { return std::make_shared<Log>(level); }

Radio::Radio(const Options& options) {
  if (options.radio == RadioKind::Sim) {
    description_ = "simulated radio: nothing goes over the air";
    fill(options);
    platform_.emplace(simulated_->platform());
    return;
  }
  description_ = "bluez, " + (options.adapter.empty() ? std::string("first adapter that is on")
                                                      : "adapter " + options.adapter);
  adapter_ = options.adapter;
  KVLinuxOptions chosen;
  chosen.bluez.adapter = options.adapter;
  chosen.log = [log = makeLog(options.log)](std::string_view line) { log->write(line); };
  platform_.emplace(KVLinuxPlatform::make(chosen));
}

std::shared_ptr<KVLinuxDiagnosis> Radio::diagnose(KVLinuxDiagnosis::Done done) const {
  const auto linuxQueue = std::dynamic_pointer_cast<KVLinuxEventQueue>(queue());
  if (simulated_ || !linuxQueue) return nullptr;
  KVBlueZOptions bluez;
  bluez.adapter = adapter_;
  return KVLinuxDiagnosis::start(linuxQueue, bluez, std::move(done));
}

void Radio::fill(const Options& options) {
  kvsim::SimulatedRadioOptions radio;
  radio.seed = options.seed;
  radio.clock = kvsim::ClockKind::Real;
  radio.advertisingInterval = 100ms;
  radio.air.rssiJitter = 2;
  radio.log = makeLog(options.log);
  simulated_ = std::make_unique<kvsim::SimulatedRadio>(radio);
  const auto bound =
      simulated_->addTag({.address = kBoundTag, .battery = 92, .password = kBoundTagPassword});
  const auto second =
      simulated_->addTag({.address = "0a1b2c3d4e60", .model = 5, .battery = 71, .password = {}});
  const auto third =
      simulated_->addTag({.address = "0a1b2c3d4e61", .model = {}, .battery = 18, .password = {}});
  simulated_->setRssi(bound, -58);
  simulated_->setRssi(second, -67);
  simulated_->setRssi(third, -83);
  if (options.command == Command::Watch) {
    for (const auto& tag : {bound, second, third}) enliven(tag);
  }
}

// Gives a watcher something to see: the tag is carried about, its button pressed, its link lost.
void Radio::enliven(const std::shared_ptr<kvsim::VirtualTag>& tag) {
  simulated_->setPathLoss(
      tag, kvsim::pathThrough({{0s, 45}, {4s, 45}, {8s, 56}, {12s, 66}, {16s, 56}, {20s, 45}}));
  simulated_->queue().postAfter(5s, [tag] { tag->pressButton(); });
  simulated_->queue().postAfter(13s, [this, tag] { simulated_->dropLink(tag); });
}

}  // namespace kvfob

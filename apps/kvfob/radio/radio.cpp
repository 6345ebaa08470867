// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/radio/radio.h"

#include <iostream>
#include <utility>

#include "KVFobLink/KVLinuxPlatform.h"
#include "apps/kvfob/radio/world.h"

namespace kvfob {
namespace {

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
  radio.advertisingInterval = advertisingInterval(options.simTags);
  radio.air.rssiJitter = 2;
  radio.log = makeLog(options.log);
  simulated_ = std::make_unique<kvsim::SimulatedRadio>(radio);
  fillWorld(*simulated_, options);
}

}  // namespace kvfob

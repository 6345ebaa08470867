// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bluez/scan_session.h"

#include <algorithm>
#include <utility>

#include "platform/linux/bluez/daemon.h"
#include "platform/linux/bluez/errors.h"
#include "platform/linux/bus/names.h"

namespace kv {
namespace {

// After so many failures in a row the log says that the adapter is busy.
constexpr int kFailuresToTell = 3;

// Every report of every low-energy device. A filter on UUIDs would not see service data, and
// without any filter BlueZ withholds devices and repeats; the empty pattern undoes one that another
// client has set.
void appendFilter(sd_bus_message* message) {
  sd_bus_message_append(message, "a{sv}", 3, "Transport", "s", "le", "DuplicateData", "b", true,
                        "Pattern", "s", "");
}

}  // namespace

ScanSession::ScanSession(Context& context)
    : context_(context),
      retry_(context.queue),
      watchdog_(context.queue),
      gap_(context.queue),
      haltLimit_(context.queue) {}

void ScanSession::setAdapter(const std::string& path) {
  if (path == adapter_) return;
  adapter_ = path;
  phase_ = Phase::Off;
  failures_ = 0;
  call_.reset();
}

void ScanSession::setWanted(bool wanted) {
  wanted_ = wanted;
  reconcile();
}

void ScanSession::pause(bool halt, std::function<void()> halted) {
  paused_ = halt;
  halted_ = std::move(halted);
  if (phase_ == Phase::Off || !halt) {
    haltLimit_.set({}, [this] { tellHalted(); });
  } else {
    haltLimit_.set(context_.timing.scanStop, [this] { tellHalted(); });
  }
  reconcile();
}

void ScanSession::resume() {
  paused_ = false;
  halted_ = nullptr;
  reconcile();
}

void ScanSession::tellHalted() {
  if (const auto halted = std::exchange(halted_, nullptr)) halted();
}

void ScanSession::reconcile() {
  const bool run = wanted_ && !paused_ && !adapter_.empty();
  if (phase_ == Phase::Off && run && !retry_.pending()) {
    start();
  } else if (phase_ == Phase::On && !run) {
    stop();
  } else if (!run) {
    retry_.cancel();
  }
}

void ScanSession::start() {
  phase_ = Phase::Starting;
  BusMessage filter =
      context_.daemon->methodCall(adapter_, bluez::kAdapter, bluez::kSetDiscoveryFilter);
  if (filter) appendFilter(filter.get());
  filterCall_ = context_.daemon->call(
      std::move(filter), context_.timing.daemonCall,
      [this](const BusMessage&, const BusFault& error) {
        if (error) context_.log("SetDiscoveryFilter: " + error->name + ": " + error->text);
      });
  call_ = context_.daemon->call(
      context_.daemon->methodCall(adapter_, bluez::kAdapter, bluez::kStartDiscovery),
      context_.timing.daemonCall,
      [this](const BusMessage&, const BusFault& error) { started(error); });
}

void ScanSession::started(const BusFault& error) {
  if (!error) {
    phase_ = Phase::On;
    failures_ = 0;
    watch();
    reconcile();
    return;
  }
  ++failures_;
  if (failures_ == kFailuresToTell) {
    context_.log("the scan does not start (" + error->name + ": " + error->text +
                 "); the adapter is busy or failing, and powering it off and on may help");
  }
  // InProgress stands for any failure of the kernel, and for a session of ours that an earlier stop
  // has left behind: that one is ended first.
  context_.daemon->send(
      context_.daemon->methodCall(adapter_, bluez::kAdapter, bluez::kStopDiscovery));
  phase_ = Phase::Off;
  tellHalted();
  const auto pause = std::min(context_.timing.scanRetryFirst * (1 << std::min(failures_ - 1, 10)),
                              context_.timing.scanRetryMost);
  retry_.set(pause, [this] { reconcile(); });
}

void ScanSession::stop() {
  phase_ = Phase::Stopping;
  // Whatever the answer is, there is no session of ours afterwards.
  call_ = context_.daemon->call(
      context_.daemon->methodCall(adapter_, bluez::kAdapter, bluez::kStopDiscovery),
      context_.timing.daemonCall, [this](const BusMessage&, const BusFault&) { stopped(); });
}

void ScanSession::stopped() {
  phase_ = Phase::Off;
  tellHalted();
  reconcile();
}

void ScanSession::watch() {
  watchdog_.set(context_.options.scanWatchdog, [this] {
    if (!std::exchange(heardSinceCheck_, false)) {
      restart("nothing was heard of any device; if that goes on, power the adapter off and on");
    } else {
      watch();
    }
  });
}

void ScanSession::setDiscovering(bool discovering) {
  if (discovering == discovering_) return;
  discovering_ = discovering;
  if (discovering || phase_ != Phase::On) {
    gap_.cancel();
  } else {
    gap_.set(context_.timing.scanGap, [this] { restart("discovery was interrupted"); });
  }
}

void ScanSession::restart(const std::string& why) {
  if (phase_ == Phase::On) {
    context_.log("the scan is started anew: " + why);
    stop();
  }
}

void ScanSession::close() {
  if (phase_ == Phase::Starting || phase_ == Phase::On) {
    context_.daemon->send(
        context_.daemon->methodCall(adapter_, bluez::kAdapter, bluez::kStopDiscovery));
  }
}

}  // namespace kv

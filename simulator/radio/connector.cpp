// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The standing request and the life of the link.
#include <algorithm>
#include <utility>

#include "simulator/radio/central.h"
#include "simulator/radio/peripheral.h"

namespace kvsim {
namespace {

constexpr Medium::Duration kShortestAttempt = std::chrono::milliseconds(1);
constexpr int kChecksPerTimeout = 8;  // of the supervision

KVError radioError(const char* message, KVBluetoothErrorCode code) {
  return {.domain = message, .code = code, .userInfo = std::nullopt};
}

}  // namespace

bool SimulatedPeripheral::belongsTo(const CentralCore& central) const {
  return central_.lock().get() == &central;
}

std::shared_ptr<CentralCore> SimulatedPeripheral::openCentral() const {
  std::shared_ptr<CentralCore> central = central_.lock();
  return central && central->handle() != nullptr ? central : nullptr;
}

void SimulatedPeripheral::connect() {
  if (!openCentral()) return;
  if (state_ == KVPeripheralStateConnected) {
    postOnLink(Medium::Duration(0), [](SimulatedPeripheral& self) {
      if (const auto central = self.openCentral()) {
        central->delegate().didConnectPeripheral(*central->handle(), self.shared_from_this());
      }
    });
    return;
  }
  if (std::exchange(wanted_, true) || state_ == KVPeripheralStateDisconnecting) return;
  state_ = KVPeripheralStateConnecting;
  attemptAfter(pause());
}

// Grows with the failures, also from one request to the next: whoever asks again at once after a
// failure must not get round it.
Medium::Duration SimulatedPeripheral::pause() {
  if (failures_ == 0) return Medium::Duration(0);
  const SimulatedRadioOptions& options = medium_->options();
  Medium::Duration base = options.retryFirst;
  for (unsigned i = 1; i < failures_ && base < options.retryMost; ++i) base *= 2;
  base = std::min(base, options.retryMost);
  const double factor = 0.75 + 0.5 * medium_->rng().unit();
  return std::chrono::duration_cast<Medium::Duration>(base * factor);
}

void SimulatedPeripheral::attemptAfter(Medium::Duration delay) {
  const std::uint64_t attempt = ++attempt_;
  if (!medium_->adapterOn()) return;  // goes on when it is on again
  delay += std::max(medium_->options().connectLatency, kShortestAttempt);
  auto task = [weak = weak_from_this(), attempt] {
    const auto self = weak.lock();
    if (self && self->wantedNow(attempt)) self->attempt();
  };
  if (failures_ == 0) {
    medium_->post(delay, std::move(task));
  } else {
    medium_->postBackground(delay, std::move(task));
  }
}

void SimulatedPeripheral::attempt() {
  if (!medium_->reachable(*device_) || !device_->link.expired()) return attemptFailed();
  const std::optional<StepBehaviour> fault = device_->tag->reach(Procedure::Connecting);
  if (!fault) return linkUp();
  const auto later = [&](Medium::Duration delay, void (SimulatedPeripheral::*outcome)()) {
    medium_->postFor(shared_from_this(), delay,
                     [attempt = attempt_, outcome](SimulatedPeripheral& self) {
                       if (self.wantedNow(attempt)) (self.*outcome)();
                     });
  };
  switch (fault->fault) {
    case StepFault::Delay:
      return later(fault->after, &SimulatedPeripheral::linkUp);
    case StepFault::Mute:
      return later(medium_->options().connectTimeout, &SimulatedPeripheral::attemptFailed);
    case StepFault::Refuse:
      return later(fault->after, &SimulatedPeripheral::refuse);
    case StepFault::Drop:
    case StepFault::Fail:
      return later(fault->after, &SimulatedPeripheral::attemptFailed);
  }
}

void SimulatedPeripheral::attemptFailed() {
  ++failures_;
  attemptAfter(pause());
}

void SimulatedPeripheral::refuse() {
  ++failures_;
  wanted_ = false;
  state_ = KVPeripheralStateDisconnected;
  if (const auto central = openCentral()) {
    central->delegate().didFailToConnectPeripheral(
        *central->handle(), shared_from_this(),
        radioError("The tag refuses the connection.", KVBluetoothErrorConnectFailed));
  }
}

void SimulatedPeripheral::linkUp() {
  // Another central may have been quicker.
  if (!medium_->reachable(*device_) || !device_->link.expired()) return attemptFailed();
  wanted_ = false;
  failures_ = 0;
  state_ = KVPeripheralStateConnected;
  device_->link = weak_from_this();
  attached_ = true;
  device_->tag->connect(*this);
  supervise();
  if (const auto central = openCentral(); central && linked()) {
    central->delegate().didConnectPeripheral(*central->handle(), shared_from_this());
  }
}

void SimulatedPeripheral::supervise() {
  const Medium::Duration timeout = medium_->options().supervisionTimeout;
  medium_->postBackground(std::max(timeout / kChecksPerTimeout, kShortestAttempt),
                          [weak = weak_from_this(), link = link_.load(), timeout] {
                            const auto self = weak.lock();
                            if (!self || !self->linked() || link != self->link_) return;
                            const Medium::Duration now = self->medium_->now();
                            if (self->medium_->reachable(*self->device_)) {
                              self->silentSince_.reset();
                            } else if (!self->silentSince_) {
                              self->silentSince_ = now;
                            } else if (now - *self->silentSince_ >= timeout) {
                              return self->lose("The tag does not answer any more.");
                            }
                            self->supervise();
                          });
}

void SimulatedPeripheral::lose(const char* how) {
  if (state_ == KVPeripheralStateConnected) end(radioError(how, KVBluetoothErrorLinkLost));
}

void SimulatedPeripheral::giveUpLink(const char* why) {
  end(radioError(why, KVBluetoothErrorLinkGivenUp));
}

void SimulatedPeripheral::resetLink() {
  ++link_;
  requests_.clear();
  inbox_.clear();
  requestRunning_ = false;
  deliveryPosted_ = false;
  silentSince_.reset();
}

void SimulatedPeripheral::end(const std::optional<KVError>& error) {
  resetLink();
  state_ = KVPeripheralStateDisconnected;
  if (std::exchange(attached_, false)) {
    device_->link.reset();
    device_->tag->disconnect();
  }
  if (const auto central = openCentral()) {
    central->delegate().didDisconnectPeripheral(*central->handle(), shared_from_this(), error);
  }
  if (!wanted_ || state_ != KVPeripheralStateDisconnected) return;
  state_ = KVPeripheralStateConnecting;
  attemptAfter(pause());
}

void SimulatedPeripheral::cancel() {
  if (!openCentral()) return;
  if (state_ == KVPeripheralStateConnected) {
    resetLink();
    state_ = KVPeripheralStateDisconnecting;
    // The report is owed even if nobody else holds the peripheral any more; so it is below.
    medium_->post(medium_->options().disconnectLatency,
                  [self = shared_from_this(), link = link_.load()] {
                    if (link == self->link_) self->end(std::nullopt);
                  });
    return;
  }
  // While a link ends, the report that is due answers the request that came after, too.
  if (!std::exchange(wanted_, false) || state_ == KVPeripheralStateDisconnecting) return;
  ++attempt_;
  failures_ = 0;
  state_ = KVPeripheralStateDisconnected;
  medium_->post(Medium::Duration(0), [self = shared_from_this()] {
    if (const auto central = self->openCentral()) {
      central->delegate().didDisconnectPeripheral(*central->handle(), self, std::nullopt);
    }
  });
}

void SimulatedPeripheral::endAfterAdapterOff() {
  if (state_ == KVPeripheralStateConnected) {
    end(radioError("The adapter is not on.", KVBluetoothErrorAdapterLost));
  } else if (state_ == KVPeripheralStateDisconnecting) {
    end(std::nullopt);
  }
}

void SimulatedPeripheral::adapterOn() {
  if (!wanted_ || state_ != KVPeripheralStateConnecting) return;
  failures_ = 0;
  attemptAfter(Medium::Duration(0));
}

void SimulatedPeripheral::abandon() {
  wanted_ = false;
  state_ = KVPeripheralStateDisconnected;
  if (!std::exchange(attached_, false)) return;
  device_->link.reset();
  device_->tag->disconnect();
}

}  // namespace kvsim

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The requests on a link, and what the tag sends.
#include "simulator/radio/peripheral.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "simulator/radio/central.h"

namespace kvsim {
namespace {

// How long the radio waits before it tries again to get through to a tag out of range.
constexpr Medium::Duration kResend = std::chrono::milliseconds(100);

// No such handle (Bluetooth Core Specification, Vol 3, Part F, 3.4.1.1): what was discovered is not
// what the tag has.
constexpr std::uint8_t kAttInvalidHandle = 0x01;

std::optional<KVError> errorOf(const GattAnswer& answer) {
  if (answer.attError == 0) return std::nullopt;
  char text[40];
  std::snprintf(text, sizeof text, "The tag answers with error 0x%02X.", answer.attError);
  return KVError{text, KVBluetoothErrorAtt + answer.attError, std::nullopt};
}

}  // namespace

SimulatedPeripheral::SimulatedPeripheral(std::weak_ptr<CentralCore> central,
                                         std::shared_ptr<Medium> medium,
                                         std::shared_ptr<RadioDevice> device)
    : central_(std::move(central)), medium_(std::move(medium)), device_(std::move(device)) {}

SimulatedPeripheral::~SimulatedPeripheral() {
  if (attached_) device_->tag->disconnect();
}

void SimulatedPeripheral::setDelegate(std::weak_ptr<KVPeripheralDelegate> delegate) {
  delegate_ = std::move(delegate);
}

bool SimulatedPeripheral::linked() const {
  return state_ == KVPeripheralStateConnected && medium_->adapterOn();
}

std::shared_ptr<KVPeripheralDelegate> SimulatedPeripheral::listener() const {
  return openCentral() ? delegate_.lock() : nullptr;
}

void SimulatedPeripheral::discoverServices() { enqueue({.kind = RequestKind::Services}); }

void SimulatedPeripheral::discoverCharacteristics(const std::shared_ptr<KVService>& service) {
  if (std::find(services_.begin(), services_.end(), service) == services_.end()) return;
  enqueue({.kind = RequestKind::Characteristics, .service = service});
}

void SimulatedPeripheral::setNotifyValue(bool enabled,
                                         const std::shared_ptr<KVCharacteristic>& characteristic) {
  enqueue({.kind = RequestKind::Subscribe,
           .characteristic = std::dynamic_pointer_cast<SimulatedCharacteristic>(characteristic),
           .enabled = enabled});
}

void SimulatedPeripheral::readValue(const std::shared_ptr<KVCharacteristic>& characteristic) {
  enqueue({.kind = RequestKind::Read,
           .characteristic = std::dynamic_pointer_cast<SimulatedCharacteristic>(characteristic)});
}

void SimulatedPeripheral::writeValue(const std::optional<KVData>& value,
                                     const std::shared_ptr<KVCharacteristic>& characteristic,
                                     KVWriteType /*type*/) {
  if (!value) return;
  enqueue({.kind = RequestKind::Write,
           .characteristic = std::dynamic_pointer_cast<SimulatedCharacteristic>(characteristic),
           .value = *value});
}

void SimulatedPeripheral::enqueue(Request request) {
  const bool discovery =
      request.kind == RequestKind::Services || request.kind == RequestKind::Characteristics;
  if (!linked() || (!discovery && !request.characteristic)) return;
  requests_.push_back(std::move(request));
  startNext();
}

void SimulatedPeripheral::startNext() {
  if (requests_.empty() || std::exchange(requestRunning_, true)) return;
  postOnLink(medium_->options().requestLatency, [](SimulatedPeripheral& self) { self.execute(); });
}

void SimulatedPeripheral::execute() {
  if (!medium_->reachable(*device_)) {
    postOnLink(kResend, [](SimulatedPeripheral& self) { self.execute(); });
    return;
  }
  const std::uint64_t link = link_;
  const Request request = requests_.front();
  const std::optional<GattAnswer> answer = askTag(request);
  if (link == link_ && linked()) finish(answer);  // else an observer of the tag ended the link
}

void SimulatedPeripheral::finish(const std::optional<GattAnswer>& answer) {
  if (!answer) {
    postOnLink(medium_->options().requestTimeout, [](SimulatedPeripheral& self) {
      self.giveUpLink("The tag did not answer a request.");
    });
  } else if (answer->delay > Medium::Duration(0)) {
    postOnLink(answer->delay,
               [answer = *answer](SimulatedPeripheral& self) { self.complete(answer); });
  } else {
    complete(*answer);
  }
}

std::optional<GattAnswer> SimulatedPeripheral::askTag(const Request& request) {
  VirtualTag& tag = *device_->tag;
  switch (request.kind) {
    case RequestKind::Services:
      return discoveryAnswer(Procedure::ServiceDiscovery);
    case RequestKind::Characteristics:
      return discoveryAnswer(Procedure::CharacteristicDiscovery);
    case RequestKind::Subscribe:
      return tag.subscribe(request.characteristic->handle(), request.enabled);
    case RequestKind::Read:
      return tag.read(request.characteristic->handle());
    case RequestKind::Write:
      break;
  }
  return tag.write(request.characteristic->handle(), request.value);
}

std::optional<GattAnswer> SimulatedPeripheral::discoveryAnswer(Procedure step) {
  const std::optional<StepBehaviour> fault = device_->tag->reach(step);
  GattAnswer answer;
  if (!fault) return answer;
  if (fault->fault == StepFault::Drop) drop(fault->after);
  if (fault->fault == StepFault::Drop || fault->fault == StepFault::Mute) return std::nullopt;
  answer.delay = fault->after;
  if (fault->fault != StepFault::Delay) answer.attError = fault->attError;
  return answer;
}

void SimulatedPeripheral::complete(const GattAnswer& answer) {
  if (answer.attError == kAttInvalidHandle && requests_.front().characteristic) {
    return giveUpLink("The tag has other attributes than before.");
  }
  const Request request = std::move(requests_.front());
  requests_.pop_front();
  requestRunning_ = false;
  startNext();
  if (request.kind == RequestKind::Services) fillServices(answer);
  if (request.kind == RequestKind::Characteristics) fillCharacteristics(request.service, answer);
  if (request.kind == RequestKind::Read) return report(request.characteristic, answer);
  const std::shared_ptr<KVPeripheralDelegate> delegate = listener();
  if (!delegate) return;
  const std::optional<KVError> error = errorOf(answer);
  if (request.kind == RequestKind::Services) {
    delegate->didDiscoverServices(*this, error);
  } else if (request.kind == RequestKind::Characteristics) {
    delegate->didDiscoverCharacteristicsForService(*this, *request.service, error);
  } else if (request.kind == RequestKind::Write) {
    delegate->didWriteValueForCharacteristic(*this, request.characteristic, error);
  }
}

void SimulatedPeripheral::fillServices(const GattAnswer& answer) {
  services_.clear();
  if (answer.attError != 0) return;
  for (const GattService& service : device_->tag->services()) {
    services_.push_back(std::make_shared<KVService>(service.uuid));
  }
}

void SimulatedPeripheral::fillCharacteristics(const std::shared_ptr<KVService>& service,
                                              const GattAnswer& answer) {
  std::vector<std::shared_ptr<KVCharacteristic>> found;
  for (const GattService& offered : device_->tag->services()) {
    if (answer.attError != 0 || !(offered.uuid == service->uuid())) continue;
    for (const GattCharacteristic& entry : offered.characteristics) {
      found.push_back(std::make_shared<SimulatedCharacteristic>(entry.uuid, service, entry.handle));
    }
  }
  service->setCharacteristics(std::move(found));
}

void SimulatedPeripheral::report(const Characteristic& characteristic, const GattAnswer& answer) {
  const std::optional<KVError> error = errorOf(answer);
  characteristic->setValue(error ? std::nullopt : std::optional(answer.value));
  if (const auto delegate = listener()) {
    delegate->didUpdateValueForCharacteristic(*this, characteristic, error);
  }
}

void SimulatedPeripheral::notify(GattHandle characteristic, KVData value,
                                 std::chrono::nanoseconds delay) {
  postOnLink(delay, [notification = Notification{characteristic, std::move(value)}](
                        SimulatedPeripheral& self) {
    self.inbox_.push_back(notification);
    if (!self.deliveryPosted_) self.deliverNext();
  });
}

void SimulatedPeripheral::deliverNext() {
  if (medium_->reachable(*device_)) {
    const Notification next = std::move(inbox_.front());
    inbox_.pop_front();
    deliveryPosted_ = !inbox_.empty();
    if (deliveryPosted_) {
      postOnLink(Medium::Duration(0), [](SimulatedPeripheral& self) { self.deliverNext(); });
    }
    for (const auto& service : services_) {
      for (const auto& entry : service->characteristics()) {
        const auto ours = std::dynamic_pointer_cast<SimulatedCharacteristic>(entry);
        if (ours && ours->handle() == next.handle) {
          return report(ours, {.value = next.value});
        }
      }
    }
    return;
  }
  deliveryPosted_ = true;
  postOnLink(kResend, [](SimulatedPeripheral& self) { self.deliverNext(); });
}

void SimulatedPeripheral::drop(std::chrono::nanoseconds delay) {
  postOnLink(delay, [](SimulatedPeripheral& self) { self.lose(); });
}

void SimulatedPeripheral::readRSSI() {
  if (state_ != KVPeripheralStateConnected) return;
  postOnLink(medium_->options().requestLatency,
             [](SimulatedPeripheral& self) { self.answerRssi(); });
}

// Asked of this side's own adapter, so that a failure is no error of the Attribute Protocol.
void SimulatedPeripheral::answerRssi() {
  Medium::Duration delay{0};
  bool fails = false;
  if (const auto fault = device_->tag->reach(Procedure::RssiRead)) {
    if (fault->fault == StepFault::Mute) return;
    if (fault->fault == StepFault::Drop) return drop(fault->after);
    delay = fault->after;
    fails = fault->fault != StepFault::Delay;
  }
  const auto tell = [fails](SimulatedPeripheral& self) {
    std::optional<KVError> error;
    std::optional<std::int64_t> rssi;
    if (fails) {
      error = {"The signal strength could not be read.", KVBluetoothErrorRefused, std::nullopt};
    } else {
      rssi = self.medium_->rssiOf(*self.device_);
    }
    if (const auto delegate = self.listener()) delegate->didReadRSSI(self, rssi, error);
  };
  if (delay == Medium::Duration(0)) return tell(*this);
  postOnLink(delay, tell);
}

}  // namespace kvsim

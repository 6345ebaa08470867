// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The central's links, one of which connects at a time.
#include <algorithm>
#include <utility>

#include "platform/linux/bluez/central_core.h"

namespace kv {
namespace {

// Whether it changes from time to time: the two highest bits of a random address tell, of which
// only a static one has both (Bluetooth Core Specification, Vol 6, Part B, 1.3.2). The daemon
// removes such a device soon after discovery has ended.
bool hasPrivateAddress(const DeviceObject& device) {
  return device.randomAddress && device.address < "8";
}

}  // namespace

Link* CentralCore::findLink(const std::string& address) {
  const auto found = links_.find(address);
  return found == links_.end() ? nullptr : found->second.get();
}

GattSession* CentralCore::session(const std::string& address) {
  Link* link = findLink(address);
  return link == nullptr ? nullptr : link->session();
}

void CentralCore::connect(const std::shared_ptr<KVPeripheral>& peripheral) {
  const auto handle = std::dynamic_pointer_cast<BlueZPeripheral>(peripheral);
  if (!handle) return;
  auto& link = links_[handle->identifier()];
  if (!link) link = std::make_unique<Link>(context_, host(), handle);
  link->request(handle);
}

void CentralCore::cancel(const std::shared_ptr<KVPeripheral>& peripheral) {
  if (peripheral) {
    if (Link* link = findLink(peripheral->identifier())) link->cancel();
  }
}

void CentralCore::deviceChanged(DeviceObject& device) {
  if (Link* link = device.adapter == adapterOn_ ? findLink(device.address) : nullptr) {
    link->deviceChanged(device);
  }
}

void CentralCore::deviceDisconnected(DeviceObject& device, const std::string& why) {
  if (Link* link = device.adapter == adapterOn_ ? findLink(device.address) : nullptr) {
    link->deviceDisconnected(why);
  }
}

void CentralCore::characteristicValue(std::string_view path, KVBytes value) {
  for (const auto& [address, link] : links_) {
    if (GattSession* session = link->session()) session->characteristicValue(path, value);
  }
}

void CentralCore::attributeRemoved(std::string_view path) {
  for (const auto& [address, link] : links_) {
    if (GattSession* session = link->session()) session->attributeRemoved(path);
  }
}

void CentralCore::requestInitiating(Link& link) {
  waitingInitiators_.push_back(&link);
  grantInitiating();
}

void CentralCore::releaseInitiating(Link& link) {
  std::erase(waitingInitiators_, &link);
  if (initiator_ == &link) {
    initiator_ = nullptr;
    grantInitiating();
  }
}

// One attempt at a time, and no discovery meanwhile: the kernel suspends it for the attempt anyway,
// and some controllers refuse to do both.
void CentralCore::grantInitiating() {
  if (initiator_ != nullptr) return;
  if (waitingInitiators_.empty()) {
    scan_.resume();
    return;
  }
  initiator_ = waitingInitiators_.front();
  waitingInitiators_.pop_front();
  const DeviceObject* device = daemon_.tree().device(adapterOn_, initiator_->address());
  scan_.pause(device == nullptr || !hasPrivateAddress(*device),
              [this] { initiator_->initiatingGranted(); });
}

void CentralCore::reportConnected(Link& link) {
  post([peripheral = link.peripheral()](CentralCore& self) {
    const Link* now = self.findLink(peripheral->identifier());
    if (now != nullptr && now->up()) {
      peripheral->setState(KVPeripheralStateConnected);
      self.delegate_->didConnectPeripheral(*self.central_, peripheral);
    }
  });
}

void CentralCore::reportDisconnected(Link& link, std::optional<KVError> error) {
  post([peripheral = link.peripheral(), error = std::move(error)](CentralCore& self) {
    peripheral->setState(KVPeripheralStateDisconnected);
    self.delegate_->didDisconnectPeripheral(*self.central_, peripheral, error);
    if (*self.context_.open) self.forgetIdle(peripheral->identifier());
  });
}

void CentralCore::forgetIdle(const std::string& address) {
  const auto found = links_.find(address);
  if (found == links_.end()) return;
  const Link& link = *found->second;
  if (link.idle()) {
    links_.erase(found);
  } else if (link.wanted()) {
    // A request that was made before this report still stands.
    link.peripheral()->setState(KVPeripheralStateConnecting);
  }
}

void CentralCore::readRssi(const std::shared_ptr<BlueZPeripheral>& peripheral) {
  const Link* link = findLink(peripheral->identifier());
  const DeviceObject* device = daemon_.tree().device(adapterOn_, peripheral->identifier());
  if (link == nullptr || !link->up() || device == nullptr) return;
  rssi_.read(adapterOn_, device->address, device->randomAddress,
             [this, peripheral](std::optional<std::int64_t> rssi) {
               post([peripheral, rssi](CentralCore& self) {
                 const Link* now = self.findLink(peripheral->identifier());
                 const auto delegate = peripheral->delegate();
                 if (now != nullptr && now->up() && delegate) {
                   delegate->didReadRSSI(
                       *peripheral, rssi,
                       rssi ? std::nullopt
                            : std::optional(KVError{"The signal strength could not be read",
                                                    KVBluetoothErrorRefused, std::nullopt}));
                 }
               });
             });
}

}  // namespace kv

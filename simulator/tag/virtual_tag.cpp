// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobSimulator/VirtualTag.h"

#include "simulator/tag/device.h"

namespace kvsim {

VirtualTag::VirtualTag(TagSpec spec, TagBehaviour behaviour, RandomSource random)
    : device_(std::make_unique<Device>(std::move(spec), std::move(behaviour), std::move(random))) {}

VirtualTag::~VirtualTag() = default;

const TagSpec& VirtualTag::spec() const { return device_->spec(); }
const std::string& VirtualTag::address() const { return device_->address(); }
const TagState& VirtualTag::state() const { return device_->state(); }
TagBehaviour& VirtualTag::behaviour() { return device_->behaviour(); }
const TagBehaviour& VirtualTag::behaviour() const { return device_->behaviour(); }
void VirtualTag::setBattery(std::uint8_t battery) { device_->setBattery(battery); }
void VirtualTag::setObserver(Observer observer) { device_->setObserver(std::move(observer)); }

void VirtualTag::pressButton() {
  // The payload tells which event of the button it is; clients are not known to read it.
  const std::array<std::uint8_t, 1> pressed = {0x01};
  if (device_->inSession()) device_->sendFrame(kButtonEvent, pressed, "the button was pressed");
}

void VirtualTag::inject(KVBytes bytes) { device_->inject(bytes); }

void VirtualTag::sendFrame(std::uint8_t code, KVBytes payload) {
  device_->sendFrame(code, payload, "frame with code " + std::to_string(code));
}

KVBytes VirtualTag::advertisement() const { return device_->advertisement(); }

const KVUUID& VirtualTag::serviceDataUuid() {
  static const KVUUID kUuid(0xFFE1);
  return kUuid;
}

std::vector<GattService> VirtualTag::services() const { return layoutOf(device_->behaviour()); }
std::optional<StepBehaviour> VirtualTag::reach(Procedure step) { return device_->reach(step); }
void VirtualTag::connect(TagLink& link) { device_->connect(link); }
void VirtualTag::disconnect() { device_->disconnect(); }

std::optional<GattAnswer> VirtualTag::read(GattHandle characteristic) {
  return device_->read(characteristic);
}

std::optional<GattAnswer> VirtualTag::write(GattHandle characteristic, KVBytes value) {
  return device_->write(characteristic, value);
}

std::optional<GattAnswer> VirtualTag::subscribe(GattHandle characteristic, bool enabled) {
  return device_->subscribe(characteristic, enabled);
}

}  // namespace kvsim

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "simulator/tag/device.h"

#include <sys/random.h>

#include <algorithm>

namespace kvsim {
namespace {

// Errors of the Attribute Protocol (Bluetooth Core Specification, Vol 3, Part F, 3.4.1.1).
constexpr std::uint8_t kInvalidHandle = 0x01;
constexpr std::uint8_t kReadNotPermitted = 0x02;
constexpr std::uint8_t kWriteNotPermitted = 0x03;
constexpr std::uint8_t kRequestNotSupported = 0x06;
constexpr std::uint8_t kInvalidLength = 0x0D;

bool isCommand(GattHandle handle) { return handle >= kCommandHandle && handle < kDistanceHandle; }

GattAnswer failure(std::uint8_t attError) { return {.attError = attError}; }

void systemRandom(std::span<std::uint8_t> bytes) {
  if (getentropy(bytes.data(), bytes.size()) != 0) std::ranges::fill(bytes, std::uint8_t{0});
}

}  // namespace

VirtualTag::Device::Device(TagSpec spec, TagBehaviour behaviour, RandomSource random)
    : spec_(std::move(spec)),
      address_(parseAddress(spec_.address).value_or(AddressBytes{})),
      addressText_(kvsim::addressText(address_)),
      behaviour_(std::move(behaviour)),
      random_(random ? std::move(random) : systemRandom) {
  state_.passwordSet = spec_.password.has_value();
  writeAdvertisement();
}

void VirtualTag::Device::writeAdvertisement() {
  advertisement_ = {0xA1, spec_.product, spec_.battery};
  std::reverse_copy(address_.begin(), address_.end(), advertisement_.begin() + 3);
  advertisement_[9] = static_cast<std::uint8_t>(spec_.transmitPower);
  advertisement_[10] = spec_.model.value_or(0);
  advertisementSize_ = spec_.model ? 11 : 10;
}

void VirtualTag::Device::setBattery(std::uint8_t battery) {
  spec_.battery = battery;
  writeAdvertisement();
}

void VirtualTag::Device::emit(TagEventKind kind, std::string text, KVData wire,
                              KVData plain) const {
  const Observer observer = observer_;
  if (observer) observer({kind, std::move(text), std::move(wire), std::move(plain)});
}

std::optional<StepBehaviour> VirtualTag::Device::reach(Procedure step) {
  const auto found = behaviour_.steps.find(step);
  if (found == behaviour_.steps.end() || found->second.times == 0) return std::nullopt;
  if (found->second.times != kAlways) --found->second.times;
  return found->second;
}

VirtualTag::Device::Gate VirtualTag::Device::enter(Procedure step) {
  const std::optional<StepBehaviour> fault = reach(step);
  if (!fault) return {true, GattAnswer{}};
  if (fault->fault == StepFault::Drop) link_->drop(fault->after);
  const bool silent = fault->fault == StepFault::Drop || fault->fault == StepFault::Mute;
  if (silent) return {false, std::nullopt};
  if (fault->fault == StepFault::Delay) return {true, GattAnswer{.delay = fault->after}};
  return {false, GattAnswer{.attError = fault->attError, .delay = fault->after}};
}

void VirtualTag::Device::connect(TagLink& link) {
  disconnect();
  link_ = &link;
  state_.connected = true;
  ++state_.connects;
  emit(TagEventKind::Connected, "a client connected");
}

void VirtualTag::Device::disconnect() {
  if (link_ == nullptr) return;
  link_ = nullptr;
  opening_.reset();
  subscribed_.clear();
  state_.connected = state_.subscribed = state_.bound = false;
  stage_ = Stage::Token;
  emit(TagEventKind::Disconnected, "the link ended");
}

bool VirtualTag::Device::has(GattHandle handle) const {
  for (const GattService& service : layoutOf(behaviour_)) {
    for (const GattCharacteristic& entry : service.characteristics) {
      if (entry.handle == handle) return true;
    }
  }
  return false;
}

std::optional<GattAnswer> VirtualTag::Device::read(GattHandle handle) {
  if (link_ == nullptr) return std::nullopt;
  if (!has(handle)) return failure(kInvalidHandle);
  Gate gate = enter(isCommand(handle) ? Procedure::OpeningRead : Procedure::InformationRead);
  if (!gate.open) return gate.answer;
  if (isCommand(handle)) {
    gate.answer->value = openingValue();
    emit(TagEventKind::OpeningSent, "opening value with the tag's half of the key",
         gate.answer->value, KVData(opening_->begin(), opening_->end()));
    return gate.answer;
  }
  std::optional<KVData> text = informationAt(handle);
  if (!text) return failure(kReadNotPermitted);
  gate.answer->value = std::move(*text);
  return gate.answer;
}

// The same for all reads on one link: a client may read it more than once before it answers.
KVData VirtualTag::Device::openingValue() {
  if (opening_) return openingWire_;
  opening_ = randomBlock();
  const Block wire = encryptBlock(kFixedKey, *opening_);
  openingWire_.assign(wire.begin(), wire.end());
  const std::size_t whole = openingWire_.size();
  openingWire_.resize(behaviour_.openingLength);
  if (openingWire_.size() > whole) random_(std::span(openingWire_).subspan(whole));
  stage_ = openingWire_.size() < whole ? Stage::Bind : Stage::Token;
  return openingWire_;
}

std::optional<GattAnswer> VirtualTag::Device::subscribe(GattHandle handle, bool enabled) {
  if (link_ == nullptr) return std::nullopt;
  if (!has(handle)) return failure(kInvalidHandle);
  if (!isCommand(handle)) return failure(kRequestNotSupported);
  Gate gate = enter(Procedure::Subscribe);
  if (!gate.open) return gate.answer;
  if (enabled) {
    subscribed_.insert(handle);
  } else {
    subscribed_.erase(handle);
  }
  state_.subscribed = !subscribed_.empty();
  emit(enabled ? TagEventKind::Subscribed : TagEventKind::Unsubscribed,
       enabled ? "notifications on" : "notifications off");
  return gate.answer;
}

std::optional<GattAnswer> VirtualTag::Device::write(GattHandle handle, KVBytes value) {
  if (link_ == nullptr) return std::nullopt;
  if (!has(handle)) return failure(kInvalidHandle);
  if (isCommand(handle)) return writeCommand(handle, value);
  if (handle != kDistanceHandle) return failure(kWriteNotPermitted);
  const Gate gate = enter(Procedure::DistanceWrite);
  if (!gate.open) return gate.answer;
  if (value.size() != 1) return failure(kInvalidLength);
  state_.distance = static_cast<std::int8_t>(value[0]);
  emit(TagEventKind::DistanceWritten,
       "set the loss distance to " + std::to_string(*state_.distance),
       KVData(value.begin(), value.end()));
  return gate.answer;
}

void VirtualTag::Device::inject(KVBytes bytes) {
  if (link_ == nullptr || subscribed_.empty()) return;
  KVData wire(bytes.begin(), bytes.end());
  link_->notify(*subscribed_.begin(), wire, std::chrono::nanoseconds(0));
  emit(TagEventKind::RawSent, "raw bytes", std::move(wire));
}

Block VirtualTag::Device::randomBlock() {
  Block block;
  random_(block);
  return block;
}

}  // namespace kvsim

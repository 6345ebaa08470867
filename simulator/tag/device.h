// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef SIMULATOR_TAG_DEVICE_H
#define SIMULATOR_TAG_DEVICE_H

#include <set>

#include "KVFobSimulator/VirtualTag.h"
#include "simulator/tag/wire.h"

namespace kvsim {

/// Where things are in a tag, whatever the knobs leave of it.
inline constexpr GattHandle kCommandHandle = 0x0010;  // copies follow
inline constexpr GattHandle kDistanceHandle = 0x0040;
inline constexpr GattHandle kInformationHandle = 0x0050;  // one after the other

std::vector<GattService> layoutOf(const TagBehaviour& behaviour);
/// The text of a Device Information characteristic; absent for any other handle.
std::optional<KVData> informationAt(GattHandle handle);

/// What is inside a virtual tag: its memory, its link, its handshake.
class VirtualTag::Device {
 public:
  Device(TagSpec spec, TagBehaviour behaviour, RandomSource random);

  const TagSpec& spec() const { return spec_; }
  const std::string& address() const { return addressText_; }
  const TagState& state() const { return state_; }
  TagBehaviour& behaviour() { return behaviour_; }
  KVBytes advertisement() const { return {advertisement_.data(), advertisementSize_}; }

  void setBattery(std::uint8_t battery);
  void setObserver(Observer observer) { observer_ = std::move(observer); }
  void inject(KVBytes bytes);
  void sendFrame(std::uint8_t code, KVBytes payload, const std::string& text);
  bool inSession() const { return stage_ == Stage::Bound; }

  std::optional<StepBehaviour> reach(Procedure step);
  void connect(TagLink& link);
  void disconnect();
  std::optional<GattAnswer> read(GattHandle handle);
  std::optional<GattAnswer> write(GattHandle handle, KVBytes value);
  std::optional<GattAnswer> subscribe(GattHandle handle, bool enabled);

 private:
  /// What the next write of the command characteristic ought to be.
  enum class Stage { Token, Bind, Bound };

  /// Whether a request may go on, and else how it is answered.
  struct Gate {
    bool open = true;
    std::optional<GattAnswer> answer;  // if open: what to fill in
  };

  Gate enter(Procedure step);
  bool has(GattHandle handle) const;
  KVData openingValue();
  void writeAdvertisement();
  void emit(TagEventKind kind, std::string text, KVData wire = {}, KVData plain = {}) const;

  std::optional<GattAnswer> writeCommand(GattHandle handle, KVBytes value);
  std::optional<Block> asToken(KVBytes value) const;
  bool takeToken(KVBytes value);
  void takeFrame(GattHandle handle, KVBytes value);
  void rejectFrame(std::string text, KVBytes value, KVData plain);
  bool carryOut(const Request& request);
  bool bind(const Request& request, bool anyPassword);
  void answer(GattHandle handle, std::uint8_t code, std::uint8_t status);
  std::optional<KVData> faultyAnswer(AnswerFault fault, std::uint8_t code, std::uint8_t status,
                                     Block& plain);
  void send(GattHandle handle, const KVData& wire, std::chrono::nanoseconds delay);
  Block randomBlock();

  TagSpec spec_;
  const AddressBytes address_;
  const std::string addressText_;
  TagBehaviour behaviour_;
  RandomSource random_;
  Observer observer_;
  TagState state_;
  std::array<std::uint8_t, 11> advertisement_{};
  std::size_t advertisementSize_ = 0;

  std::optional<Block> sessionKey_;  // outlives the link, for the tags that exchange no tokens
  KVData lastAnswer_;

  // One link:
  TagLink* link_ = nullptr;
  Stage stage_ = Stage::Token;
  std::optional<Block> opening_;
  KVData openingWire_;
  std::set<GattHandle> subscribed_;
};

}  // namespace kvsim

#endif  // SIMULATOR_TAG_DEVICE_H

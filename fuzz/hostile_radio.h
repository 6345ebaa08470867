// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A radio with one tag, all of whose words pass through the fuzzer's hands.
#ifndef FUZZ_HOSTILE_RADIO_H
#define FUZZ_HOSTILE_RADIO_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "KVFobLink/KVPlatform.h"
#include "KVFobSimulator/VirtualTag.h"
#include "fuzz/input.h"

namespace kvfuzz {

/// The tag's device as the library sees it. It asks the virtual tag, and gives the answer on
/// unchanged, spoilt, late, twice, or not at all. It stays within what a radio promises: nothing of
/// a link is reported after its end.
class HostilePeripheral final : public KVPeripheral,
                                public kvsim::TagLink,
                                public std::enable_shared_from_this<HostilePeripheral> {
 public:
  HostilePeripheral(std::shared_ptr<KVEventQueue> queue, kvsim::VirtualTag& tag, Input& input)
      : queue_(std::move(queue)), tag_(tag), input_(input) {}

  void linkUp();
  void linkDown();
  void setState(std::int64_t state) { state_ = state; }
  /// From now on the tag is a good one.
  void behave() { hostile_ = false; }
  /// Sends any bytes as a notification, or one that was sent before.
  void notifyAnything();

  const std::string& identifier() const override { return identifier_; }
  std::int64_t state() const override { return state_; }
  void setDelegate(std::weak_ptr<KVPeripheralDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  const std::vector<std::shared_ptr<KVService>>& services() const override { return services_; }
  void discoverServices() override;
  void discoverCharacteristics(const std::shared_ptr<KVService>& service) override;
  void setNotifyValue(bool enabled,
                      const std::shared_ptr<KVCharacteristic>& characteristic) override;
  void readValue(const std::shared_ptr<KVCharacteristic>& characteristic) override;
  void writeValue(const std::optional<KVData>& value,
                  const std::shared_ptr<KVCharacteristic>& characteristic,
                  KVWriteType type) override;
  void readRSSI() override;

  void notify(kvsim::GattHandle characteristic, KVData value,
              std::chrono::nanoseconds delay) override;
  void drop(std::chrono::nanoseconds delay) override;

  std::function<void()> onDrop;  ///< The tag, or the fuzzer, ends the link.

 private:
  using Event = std::function<void(KVPeripheralDelegate& delegate)>;

  enum class Mischief { none, refuse, silence, spoil, replace, twice, late, replay, drop };
  Mischief mischief();
  void post(Event event, std::chrono::nanoseconds delay = std::chrono::milliseconds(8));
  void answer(const std::function<Event(std::optional<KVError>)>& event);
  void value(const std::shared_ptr<KVCharacteristic>& characteristic, KVData bytes);
  kvsim::GattHandle handleOf(const std::shared_ptr<KVCharacteristic>& characteristic) const;

  const std::string identifier_ = "hostile";
  std::shared_ptr<KVEventQueue> queue_;
  kvsim::VirtualTag& tag_;
  Input& input_;
  bool hostile_ = true;
  std::int64_t state_ = KVPeripheralStateDisconnected;
  unsigned link_ = 0;
  std::weak_ptr<KVPeripheralDelegate> delegate_;
  std::vector<std::shared_ptr<KVService>> services_;
  std::map<const KVCharacteristic*, kvsim::GattHandle> handles_;
  std::weak_ptr<KVCharacteristic> command_;
  std::vector<KVData> sent_;
};

/// Its central. One at a time; the fuzzer switches the adapter, and lets the tag be heard.
class HostileRadio final : public KVRadio {
 public:
  HostileRadio(std::shared_ptr<KVEventQueue> queue, kvsim::VirtualTag& tag, Input& input);

  std::shared_ptr<KVCentral> makeCentral(KVCentralDelegate& delegate,
                                         const std::shared_ptr<KVEventQueue>& queue) override;
  void setPowered(bool powered);
  bool powered() const { return powered_; }
  void advertise(KVBytes frame);
  void dropLink();
  HostilePeripheral& peripheral() { return *peripheral_; }

 private:
  class Central;
  std::shared_ptr<KVEventQueue> queue_;
  std::shared_ptr<HostilePeripheral> peripheral_;
  std::weak_ptr<Central> central_;
  bool powered_ = true;
};

}  // namespace kvfuzz

#endif  // FUZZ_HOSTILE_RADIO_H

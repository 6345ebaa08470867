// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A radio that does nothing but write down what it is asked; the test delivers the events.
#ifndef TESTS_SUPPORT_FAKE_RADIO_H
#define TESTS_SUPPORT_FAKE_RADIO_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KVFobLink/KVPlatform.h"
#include "tests/support/fake_platform.h"

namespace kvtest {

/// The first eight digits of a UUID, which tell all that occur here apart.
inline std::string shortName(const KVUUID& uuid) { return uuid.string().substr(0, 8); }

class FakePeripheral final : public KVPeripheral {
 public:
  FakePeripheral(std::string identifier, std::shared_ptr<Journal> journal)
      : identifier_(std::move(identifier)), journal_(std::move(journal)) {}

  const std::string& identifier() const override { return identifier_; }
  std::int64_t state() const override { return linkState; }
  void setDelegate(std::weak_ptr<KVPeripheralDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  const std::vector<std::shared_ptr<KVService>>& services() const override { return services_; }
  void discoverServices() override { note("discover services"); }
  void discoverCharacteristics(const std::shared_ptr<KVService>& service) override {
    note("discover " + shortName(service->uuid()));
  }
  void setNotifyValue(bool enabled, const std::shared_ptr<KVCharacteristic>& c) override {
    note((enabled ? "subscribe " : "unsubscribe ") + shortName(c->uuid()));
  }
  void readValue(const std::shared_ptr<KVCharacteristic>& c) override {
    note("read " + shortName(c->uuid()));
  }
  void writeValue(const std::optional<KVData>& value, const std::shared_ptr<KVCharacteristic>& c,
                  KVWriteType type) override {
    if (!value || c == nullptr || type != KVWriteType::WithResponse) return;
    note("write " + shortName(c->uuid()) + " " + hex(*value));
  }
  void readRSSI() override { note("read rssi"); }

  /// Adds a service; its characteristics are known at once.
  std::shared_ptr<KVService> add(std::string_view uuid, const std::vector<std::string>& chars) {
    services_.push_back(std::make_shared<KVService>(*KVUUID::fromString(uuid)));
    std::vector<std::shared_ptr<KVCharacteristic>> found;
    for (const auto& text : chars) {
      found.push_back(
          std::make_shared<KVCharacteristic>(*KVUUID::fromString(text), services_.back()));
    }
    services_.back()->setCharacteristics(std::move(found));
    return services_.back();
  }

  std::shared_ptr<KVPeripheralDelegate> delegate() const { return delegate_.lock(); }
  void reportServices(const std::optional<KVError>& error = {}) {
    if (const auto to = delegate()) to->didDiscoverServices(*this, error);
  }
  void reportCharacteristics(std::size_t service, const std::optional<KVError>& error = {}) {
    if (const auto to = delegate()) {
      to->didDiscoverCharacteristicsForService(*this, *services_[service], error);
    }
  }
  void reportValue(const std::shared_ptr<KVCharacteristic>& c, std::optional<KVData> value,
                   const std::optional<KVError>& error = {}) {
    c->setValue(std::move(value));
    if (const auto to = delegate()) to->didUpdateValueForCharacteristic(*this, c, error);
  }
  void reportWrite(const std::shared_ptr<KVCharacteristic>& c,
                   const std::optional<KVError>& error = {}) {
    if (const auto to = delegate()) to->didWriteValueForCharacteristic(*this, c, error);
  }
  void reportRSSI(std::optional<std::int64_t> rssi, const std::optional<KVError>& error = {}) {
    if (const auto to = delegate()) to->didReadRSSI(*this, rssi, error);
  }

  std::int64_t linkState = KVPeripheralStateDisconnected;

 private:
  void note(const std::string& what) { journal_->add(identifier_ + " " + what); }

  std::string identifier_;
  std::shared_ptr<Journal> journal_;
  std::weak_ptr<KVPeripheralDelegate> delegate_;
  std::vector<std::shared_ptr<KVService>> services_;
};

class FakeCentral final : public KVCentral {
 public:
  explicit FakeCentral(std::shared_ptr<Journal> journal) : journal_(std::move(journal)) {}

  std::int64_t state() const override { return adapterState; }
  void scanForPeripherals(std::span<const KVUUID> services, bool allowDuplicates) override {
    std::string line = "scan";
    for (const auto& uuid : services) line += " " + uuid.string();
    journal_->add(line + (allowDuplicates ? " with duplicates" : " without duplicates"));
  }
  void stopScan() override { journal_->add("stop scan"); }
  void connectPeripheral(const std::shared_ptr<KVPeripheral>& p) override {
    if (p != nullptr) journal_->add("connect " + p->identifier());
  }
  void cancelPeripheralConnection(const std::shared_ptr<KVPeripheral>& p) override {
    journal_->add("cancel " + (p ? p->identifier() : "nothing"));
  }
  void close() override { closed = true; }

  std::int64_t adapterState = KVCentralStateUnknown;
  bool closed = false;

 private:
  std::shared_ptr<Journal> journal_;
};

class FakeRadio final : public KVRadio {
 public:
  explicit FakeRadio(std::shared_ptr<Journal> journal) : journal_(std::move(journal)) {}
  std::shared_ptr<KVCentral> makeCentral(KVCentralDelegate& to,
                                         const std::shared_ptr<KVEventQueue>& on) override {
    delegates.push_back(&to);
    queues.push_back(on);
    return std::make_shared<FakeCentral>(journal_);
  }

  std::vector<KVCentralDelegate*> delegates;
  std::vector<std::shared_ptr<KVEventQueue>> queues;

 private:
  std::shared_ptr<Journal> journal_;
};

}  // namespace kvtest

#endif  // TESTS_SUPPORT_FAKE_RADIO_H

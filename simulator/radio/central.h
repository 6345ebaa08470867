// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef SIMULATOR_RADIO_CENTRAL_H
#define SIMULATOR_RADIO_CENTRAL_H

#include <map>
#include <vector>

#include "simulator/radio/medium.h"
#include "simulator/radio/peripheral.h"

namespace kvsim {

/// What is behind one central: its scan and the devices it has reported. Outlives the central's
/// handle for as long as an event of it is being handled.
class CentralCore : public std::enable_shared_from_this<CentralCore> {
 public:
  CentralCore(std::shared_ptr<Medium> medium, KVCentralDelegate& delegate)
      : medium_(std::move(medium)), delegate_(delegate) {}

  const std::shared_ptr<Medium>& medium() const { return medium_; }
  /// Absent once the central has been dropped; from then on there are no events.
  KVCentral* handle() const { return handle_; }
  KVCentralDelegate& delegate() const { return delegate_; }

  void open(KVCentral& handle);
  void close();

  void scan(std::span<const KVUUID> services, bool allowDuplicates);
  void stopScan();
  bool scanning() const { return scanning_; }

  /// Reports one advertisement to the delegate, if a scan that wants it runs.
  void report(const std::shared_ptr<RadioDevice>& device, const KVAdvertisement& advertisement,
              std::optional<std::int64_t> rssi);
  /// The device is off the air for good. Whoever holds its peripheral may keep it.
  void forget(const RadioDevice& device) { peripherals_.erase(device.serial); }
  void adapterChanged();

 private:
  bool wants(const KVAdvertisement& advertisement) const;
  std::shared_ptr<SimulatedPeripheral> peripheralFor(const std::shared_ptr<RadioDevice>& device);

  const std::shared_ptr<Medium> medium_;
  KVCentralDelegate& delegate_;
  KVCentral* handle_ = nullptr;

  bool scanning_ = false;
  bool allowDuplicates_ = false;
  std::uint64_t scan_ = 0;
  std::vector<KVUUID> filter_;
  bool filterTakesTags_ = false;
  std::map<std::size_t, std::shared_ptr<SimulatedPeripheral>> peripherals_;  // by device's serial
};

/// The handle that an application holds.
class SimulatedCentral final : public KVCentral {
 public:
  explicit SimulatedCentral(std::shared_ptr<CentralCore> core);
  ~SimulatedCentral() override;

  std::int64_t state() const override;
  void scanForPeripherals(std::span<const KVUUID> services, bool allowDuplicates) override;
  void stopScan() override;
  void connectPeripheral(const std::shared_ptr<KVPeripheral>& peripheral) override;
  void cancelPeripheralConnection(const std::shared_ptr<KVPeripheral>& peripheral) override;
  void close() override { core_->close(); }

 private:
  std::shared_ptr<SimulatedPeripheral> own(const std::shared_ptr<KVPeripheral>& peripheral) const;

  const std::shared_ptr<CentralCore> core_;
};

}  // namespace kvsim

#endif  // SIMULATOR_RADIO_CENTRAL_H

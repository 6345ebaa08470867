// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Looks for what keeps the BlueZ central from working.
#ifndef PLATFORM_LINUX_BLUEZ_DIAGNOSIS_H
#define PLATFORM_LINUX_BLUEZ_DIAGNOSIS_H

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "KVFobLink/KVLinuxDiagnosis.h"
#include "platform/linux/bluez/hci_sockets.h"
#include "platform/linux/bluez/object_tree.h"
#include "platform/linux/bus/connection.h"

namespace kv {

/// Where to look; tests look elsewhere.
struct DiagnosisSources {
  std::string sys = "/sys";
  std::shared_ptr<HciSockets> sockets = std::make_shared<HciSockets>();
  /// How long one answer of the bus or the daemon may take.
  std::chrono::milliseconds patience{5'000};
};

/// Asks the bus, then the daemon for its objects, and derives the rest from these. Event thread.
class Diagnosis : public KVLinuxDiagnosis,
                  public std::enable_shared_from_this<Diagnosis>,
                  private ObjectTreeObserver {
 public:
  Diagnosis(WeakLinuxQueue queue, KVBlueZOptions options, Done done, DiagnosisSources sources = {});

  void begin();

 private:
  void adaptersChanged() override {}
  void deviceHeard(DeviceObject& /*device*/) override {}
  void deviceChanged(DeviceObject& /*device*/) override {}
  void deviceDisconnected(DeviceObject& /*device*/, const std::string& /*why*/) override {}
  void deviceRemoved(DeviceObject& /*device*/) override {}
  void characteristicValue(std::string_view /*path*/, KVBytes /*value*/) override {}
  void attributeRemoved(std::string_view /*path*/) override {}

  void busLost(int error);
  void ownerKnown(const BusFault& error);
  void listed(const BusMessage& reply, const BusFault& error);
  void finish();

  void examineObjects();
  const AdapterObject* examineAdapters();
  void adapterMissing();
  void examinePower(const AdapterObject& adapter);
  void examineRssi(const AdapterObject& adapter);
  void examineScan(const AdapterObject& adapter);
  void examineLinks(const AdapterObject& adapter);
  void ok(const char* topic, std::string seen);
  void hint(const char* topic, std::string seen, std::string advice);
  void unusable(const char* topic, std::string seen, std::string advice);

  const WeakLinuxQueue queue_;
  const KVBlueZOptions options_;
  Done done_;
  const DiagnosisSources sources_;
  ObjectTree tree_;
  std::vector<KVFinding> findings_;
  std::shared_ptr<BusConnection> bus_;
  BusSlot call_;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_DIAGNOSIS_H

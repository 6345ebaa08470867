// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bluez/radio.h"

#include <utility>

#include "platform/linux/bluez/central_core.h"

namespace kv {
namespace {

class BlueZCentral : public KVCentral {
 public:
  ~BlueZCentral() override { BlueZCentral::close(); }

  void setCore(std::shared_ptr<CentralCore> core) { core_ = std::move(core); }

  std::int64_t state() const override { return core_->state(); }
  void scanForPeripherals(std::span<const KVUUID> services, bool allowDuplicates) override {
    if (!closed_) core_->scan(services, allowDuplicates);
  }
  void stopScan() override {
    if (!closed_) core_->stopScan();
  }
  void connectPeripheral(const std::shared_ptr<KVPeripheral>& peripheral) override {
    if (!closed_) core_->connect(peripheral);
  }
  void cancelPeripheralConnection(const std::shared_ptr<KVPeripheral>& peripheral) override {
    if (!closed_) core_->cancel(peripheral);
  }
  void close() override {
    if (!std::exchange(closed_, true)) core_->close();
  }

 private:
  std::shared_ptr<CentralCore> core_;
  bool closed_ = false;
};

// The central on a queue that cannot watch the bus.
class UnsupportedCentral : public KVCentral {
 public:
  std::int64_t state() const override { return KVCentralStateUnsupported; }
  void scanForPeripherals(std::span<const KVUUID> /*services*/, bool /*duplicates*/) override {}
  void stopScan() override {}
  void connectPeripheral(const std::shared_ptr<KVPeripheral>& /*peripheral*/) override {}
  void cancelPeripheralConnection(const std::shared_ptr<KVPeripheral>& /*peripheral*/) override {}
};

class BlueZRadio : public KVRadio {
 public:
  BlueZRadio(KVBlueZOptions options, BlueZTiming timing, std::shared_ptr<KVLog> log,
             std::shared_ptr<HciSockets> sockets)
      : options_(std::move(options)),
        timing_(timing),
        log_(std::move(log)),
        sockets_(std::move(sockets)) {}

  std::shared_ptr<KVCentral> makeCentral(KVCentralDelegate& delegate,
                                         const std::shared_ptr<KVEventQueue>& queue) override {
    const auto watching = std::dynamic_pointer_cast<KVLinuxEventQueue>(queue);
    if (!watching) return makeUnsupported(delegate, queue);
    auto central = std::make_shared<BlueZCentral>();
    const auto core = std::make_shared<CentralCore>(*central, delegate, watching, options_, timing_,
                                                    log_, sockets_);
    central->setCore(core);
    queue->post([weak = std::weak_ptr<CentralCore>(core)] {
      if (const auto started = weak.lock()) started->start();
    });
    return central;
  }

 private:
  std::shared_ptr<KVCentral> makeUnsupported(KVCentralDelegate& delegate,
                                             const std::shared_ptr<KVEventQueue>& queue) {
    if (log_) {
      log_->write("bluez: this event queue cannot watch file descriptors, so there is no radio");
    }
    auto central = std::make_shared<UnsupportedCentral>();
    queue->post([weak = std::weak_ptr<UnsupportedCentral>(central), &delegate] {
      if (const auto alive = weak.lock()) delegate.centralManagerDidUpdateState(*alive);
    });
    return central;
  }

  const KVBlueZOptions options_;
  const BlueZTiming timing_;
  const std::shared_ptr<KVLog> log_;
  const std::shared_ptr<HciSockets> sockets_;
};

}  // namespace

std::shared_ptr<KVRadio> makeBlueZRadio(KVBlueZOptions options, std::shared_ptr<KVLog> log,
                                        BlueZTiming timing, std::shared_ptr<HciSockets> sockets) {
  return std::make_shared<BlueZRadio>(std::move(options), timing, std::move(log),
                                      std::move(sockets));
}

}  // namespace kv

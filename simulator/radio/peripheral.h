// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef SIMULATOR_RADIO_PERIPHERAL_H
#define SIMULATOR_RADIO_PERIPHERAL_H

#include <atomic>
#include <deque>
#include <utility>

#include "KVFobLink/KVBluetooth.h"
#include "simulator/radio/medium.h"

namespace kvsim {

/// A characteristic that remembers which of the tag's it is.
class SimulatedCharacteristic final : public KVCharacteristic {
 public:
  SimulatedCharacteristic(KVUUID uuid, std::weak_ptr<KVService> service, GattHandle handle)
      : KVCharacteristic(uuid, std::move(service)), handle_(handle) {}
  GattHandle handle() const { return handle_; }

 private:
  const GattHandle handle_;
};

/// A tag as one central sees it: the standing request, the link, and the requests on the link.
///
/// Event thread, but for what the port promises for any thread.
class SimulatedPeripheral final : public KVPeripheral,
                                  public TagLink,
                                  public std::enable_shared_from_this<SimulatedPeripheral> {
 public:
  SimulatedPeripheral(std::weak_ptr<CentralCore> central, std::shared_ptr<Medium> medium,
                      std::shared_ptr<RadioDevice> device);
  ~SimulatedPeripheral() override;

  // What an application sees.
  const std::string& identifier() const override { return device_->identifier; }
  std::int64_t state() const override { return state_; }
  void setDelegate(std::weak_ptr<KVPeripheralDelegate> delegate) override;
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

  // What the tag says.
  void notify(GattHandle characteristic, KVData value, std::chrono::nanoseconds delay) override;
  void drop(std::chrono::nanoseconds delay) override;

  // What the central asks (connector.cpp).
  bool belongsTo(const CentralCore& central) const;
  /// Whether this scan has reported it before.
  bool markReported(std::uint64_t scan) { return std::exchange(reportedInScan_, scan) == scan; }
  void connect();
  void cancel();
  void adapterOff() { ++attempt_; }
  void endAfterAdapterOff();
  void adapterOn();
  /// The central is gone: the link ends without an event.
  void abandon();
  /// The link, if one is up, ends by itself.
  void lose(const char* how = "The link was lost.");

 private:
  using Characteristic = std::shared_ptr<SimulatedCharacteristic>;
  enum class RequestKind { Services, Characteristics, Subscribe, Read, Write };
  struct Request {
    RequestKind kind = RequestKind::Services;
    std::shared_ptr<KVService> service{};
    Characteristic characteristic{};
    KVData value{};
    bool enabled = false;
  };
  struct Notification {
    GattHandle handle = 0;
    KVData value;
  };

  // The standing request and the link.
  void attemptAfter(Medium::Duration delay);
  void attempt();
  void attemptFailed();
  void linkUp();
  void end(const std::optional<KVError>& error);
  void refuse();
  void supervise();
  /// This side ends a link that is of no use.
  void giveUpLink(const char* why);
  void resetLink();
  bool wantedNow(std::uint64_t attempt) const { return wanted_ && attempt == attempt_; }
  Medium::Duration pause();
  std::shared_ptr<CentralCore> openCentral() const;

  // Requests, one at a time, in order.
  bool linked() const;
  void enqueue(Request request);
  void startNext();
  void execute();
  void finish(const std::optional<GattAnswer>& answer);
  void complete(const GattAnswer& answer);
  std::optional<GattAnswer> askTag(const Request& request);
  std::optional<GattAnswer> discoveryAnswer(Procedure step);
  void fillServices(const GattAnswer& answer);
  void fillCharacteristics(const std::shared_ptr<KVService>& service, const GattAnswer& answer);
  void deliverNext();
  void report(const Characteristic& characteristic, const GattAnswer& answer);
  void answerRssi();
  std::shared_ptr<KVPeripheralDelegate> listener() const;
  /// Posts work that is void once the link has ended.
  template <typename Function>
  void postOnLink(Medium::Duration delay, Function function) {
    medium_->postFor(
        shared_from_this(), delay,
        [link = link_.load(), function = std::move(function)](SimulatedPeripheral& self) {
          if (self.linked() && link == self.link_) function(self);
        });
  }

  const std::weak_ptr<CentralCore> central_;
  const std::shared_ptr<Medium> medium_;
  const std::shared_ptr<RadioDevice> device_;
  std::weak_ptr<KVPeripheralDelegate> delegate_;
  std::uint64_t reportedInScan_ = 0;

  std::atomic<std::int64_t> state_{KVPeripheralStateDisconnected};
  std::atomic<std::uint64_t> link_{0};  // counts the ends of links
  bool wanted_ = false;                 // a standing request is pending
  std::uint64_t attempt_ = 0;
  unsigned failures_ = 0;
  bool attached_ = false;  // the tag knows of this link
  std::optional<Medium::Duration> silentSince_;

  std::vector<std::shared_ptr<KVService>> services_;
  std::deque<Request> requests_;
  bool requestRunning_ = false;
  std::deque<Notification> inbox_;
  bool deliveryPosted_ = false;
};

}  // namespace kvsim

#endif  // SIMULATOR_RADIO_PERIPHERAL_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "fuzz/hostile_radio.h"

#include <algorithm>
#include <utility>

namespace kvfuzz {
namespace {

using namespace std::chrono_literals;

const KVError kRefused{"refused", 1100, std::nullopt};
constexpr std::size_t kMostBytes = 40;

}  // namespace

HostilePeripheral::Mischief HostilePeripheral::mischief() {
  if (!hostile_) return Mischief::none;
  const auto choice = input_.ConsumeIntegralInRange<unsigned>(0, 15);
  return choice > 8 ? Mischief::none : static_cast<Mischief>(choice);
}

void HostilePeripheral::linkUp() {
  ++link_;
  state_ = KVPeripheralStateConnected;
  tag_.connect(*this);
}

void HostilePeripheral::linkDown() {
  ++link_;
  state_ = KVPeripheralStateDisconnected;
  tag_.disconnect();
}

void HostilePeripheral::post(Event event, std::chrono::nanoseconds delay) {
  queue_->postAfter(delay, [self = shared_from_this(), link = link_, event = std::move(event)] {
    const auto delegate = self->delegate_.lock();
    if (delegate && link == self->link_) event(*delegate);
  });
}

// For what carries no bytes: well, refused, not at all, twice, late, or the link ends.
void HostilePeripheral::answer(const std::function<Event(std::optional<KVError>)>& event) {
  switch (mischief()) {
    case Mischief::refuse:
      return post(event(kRefused));
    case Mischief::silence:
      return;
    case Mischief::drop:
      return drop(1ms);
    case Mischief::twice:
      post(event(std::nullopt));
      [[fallthrough]];
    default:
      return post(event(std::nullopt));
    case Mischief::late:
      return post(event(std::nullopt), input_.ConsumeIntegralInRange(0, 40) * 1s);
  }
}

void HostilePeripheral::discoverServices() {
  if (state_ != KVPeripheralStateConnected) return;
  answer([self = shared_from_this()](std::optional<KVError> error) -> Event {
    return [self, error](KVPeripheralDelegate& delegate) {
      self->services_.clear();
      for (const auto& service : self->tag_.services()) {
        self->services_.push_back(std::make_shared<KVService>(service.uuid));
      }
      if (error) self->services_.clear();
      delegate.didDiscoverServices(*self, error);
    };
  });
}

void HostilePeripheral::discoverCharacteristics(const std::shared_ptr<KVService>& service) {
  if (state_ != KVPeripheralStateConnected || !service) return;
  answer([self = shared_from_this(), service](std::optional<KVError> error) -> Event {
    return [self, service, error](KVPeripheralDelegate& delegate) {
      std::vector<std::shared_ptr<KVCharacteristic>> found;
      for (const auto& offered : self->tag_.services()) {
        if (!(offered.uuid == service->uuid()) || error) continue;
        for (const auto& each : offered.characteristics) {
          found.push_back(std::make_shared<KVCharacteristic>(each.uuid, service));
          self->handles_[found.back().get()] = each.handle;
          if (each.notifies) self->command_ = found.back();
        }
      }
      service->setCharacteristics(std::move(found));
      delegate.didDiscoverCharacteristicsForService(*self, *service, error);
    };
  });
}

kvsim::GattHandle HostilePeripheral::handleOf(
    const std::shared_ptr<KVCharacteristic>& characteristic) const {
  const auto found = handles_.find(characteristic.get());
  return found == handles_.end() ? kvsim::GattHandle{0} : found->second;
}

void HostilePeripheral::setNotifyValue(bool enabled,
                                       const std::shared_ptr<KVCharacteristic>& characteristic) {
  if (state_ != KVPeripheralStateConnected || !characteristic) return;
  if (mischief() != Mischief::silence) tag_.subscribe(handleOf(characteristic), enabled);
}

// A value on its way to the library, whatever becomes of it.
void HostilePeripheral::value(const std::shared_ptr<KVCharacteristic>& characteristic,
                              KVData bytes) {
  std::chrono::nanoseconds delay = 8ms;
  std::optional<KVError> error;
  int times = 1;
  switch (mischief()) {
    case Mischief::none:
      break;
    case Mischief::refuse:
      error = kRefused;
      break;
    case Mischief::silence:
      return;
    case Mischief::spoil:
      if (!bytes.empty()) {
        bytes[input_.ConsumeIntegralInRange<std::size_t>(0, bytes.size() - 1)] ^=
            input_.ConsumeIntegral<std::uint8_t>();
      }
      break;
    case Mischief::replace:
      bytes = takeBytes(input_, kMostBytes);
      break;
    case Mischief::twice:
      times = 2;
      break;
    case Mischief::late:
      delay = input_.ConsumeIntegralInRange(0, 40) * 1s;
      break;
    case Mischief::replay:
      if (!sent_.empty())
        bytes = sent_[input_.ConsumeIntegralInRange<std::size_t>(0, sent_.size() - 1)];
      break;
    case Mischief::drop:
      return drop(1ms);
  }
  sent_.push_back(bytes);
  for (; times > 0; --times) {
    post(
        [self = shared_from_this(), characteristic, bytes, error](KVPeripheralDelegate& delegate) {
          characteristic->setValue(error ? std::nullopt : std::optional(bytes));
          delegate.didUpdateValueForCharacteristic(*self, characteristic, error);
        },
        delay);
  }
}

void HostilePeripheral::readValue(const std::shared_ptr<KVCharacteristic>& characteristic) {
  if (state_ != KVPeripheralStateConnected || !characteristic) return;
  if (auto read = tag_.read(handleOf(characteristic)))
    value(characteristic, std::move(read->value));
}

void HostilePeripheral::writeValue(const std::optional<KVData>& written,
                                   const std::shared_ptr<KVCharacteristic>& characteristic,
                                   KVWriteType /*type*/) {
  if (state_ != KVPeripheralStateConnected || !characteristic || !written) return;
  const auto answered = tag_.write(handleOf(characteristic), *written);
  if (!answered) return;
  answer([self = shared_from_this(), characteristic](std::optional<KVError> error) -> Event {
    return [self, characteristic, error](KVPeripheralDelegate& delegate) {
      delegate.didWriteValueForCharacteristic(*self, characteristic, error);
    };
  });
}

void HostilePeripheral::readRSSI() {
  queue_->post([self = shared_from_this()] {
    if (self->state_ != KVPeripheralStateConnected) return;
    self->answer([self](std::optional<KVError> error) -> Event {
      const auto rssi =
          self->hostile_ ? self->input_.ConsumeIntegral<std::int8_t>() : std::int8_t{-60};
      return [self, error, rssi](KVPeripheralDelegate& delegate) {
        delegate.didReadRSSI(*self, error ? std::nullopt : std::optional<std::int64_t>(rssi),
                             error);
      };
    });
  });
}

void HostilePeripheral::notify(kvsim::GattHandle /*characteristic*/, KVData bytes,
                               std::chrono::nanoseconds /*delay*/) {
  if (const auto command = command_.lock()) value(command, std::move(bytes));
}

void HostilePeripheral::notifyAnything() {
  if (state_ == KVPeripheralStateConnected) notify(0, takeBytes(input_, kMostBytes), {});
}

void HostilePeripheral::drop(std::chrono::nanoseconds delay) {
  queue_->postAfter(delay, [self = shared_from_this(), link = link_] {
    if (link == self->link_ && self->onDrop) self->onDrop();
  });
}

class HostileRadio::Central final : public KVCentral, public std::enable_shared_from_this<Central> {
 public:
  Central(HostileRadio& radio, KVCentralDelegate& delegate) : radio_(radio), delegate_(delegate) {}

  std::int64_t state() const override {
    return radio_.powered_ ? KVCentralStatePoweredOn : KVCentralStatePoweredOff;
  }
  void scanForPeripherals(std::span<const KVUUID>, bool) override { scanning_ = radio_.powered_; }
  void stopScan() override { scanning_ = false; }
  void connectPeripheral(const std::shared_ptr<KVPeripheral>& peripheral) override {
    if (!peripheral) return;
    wanted_ = true;
    if (device().state() != KVPeripheralStateConnected) {
      device().setState(KVPeripheralStateConnecting);
    }
    later(30ms, [this] { connectNow(); });
  }
  void cancelPeripheralConnection(const std::shared_ptr<KVPeripheral>& peripheral) override {
    if (!peripheral || device().state() == KVPeripheralStateDisconnected) return;
    wanted_ = false;
    device().setState(KVPeripheralStateDisconnecting);
    later(8ms, [this] { endLink(std::nullopt); });
  }

  void stateChanged() {
    if (!radio_.powered_) scanning_ = false;
    post([](KVCentralDelegate& to, KVCentral& self) { to.centralManagerDidUpdateState(self); });
    if (!radio_.powered_ && device().state() == KVPeripheralStateConnected) {
      later(1ms, [this] { endLink(kRefused); });
    }
    if (radio_.powered_) later(30ms, [this] { connectNow(); });
  }
  void heard(KVData frame) {
    if (!scanning_) return;
    post([this, frame = std::move(frame)](KVCentralDelegate& to, KVCentral& self) {
      const KVAdvertisement::ServiceData entry{kvsim::VirtualTag::serviceDataUuid(), frame};
      if (scanning_) to.didDiscoverPeripheral(self, radio_.peripheral_, {{&entry, 1}}, -60);
    });
  }
  void linkLost() {
    if (device().state() == KVPeripheralStateConnected) endLink(kRefused);
  }

 private:
  HostilePeripheral& device() { return *radio_.peripheral_; }
  void later(std::chrono::nanoseconds delay, std::function<void()> task) {
    radio_.queue_->postAfter(delay, [weak = weak_from_this(), task = std::move(task)] {
      if (const auto self = weak.lock()) task();
    });
  }
  void post(std::function<void(KVCentralDelegate&, KVCentral&)> event) {
    later(0ms, [this, event = std::move(event)] { event(delegate_, *this); });
  }
  void connectNow() {
    if (!wanted_ || !radio_.powered_) return;
    wanted_ = false;
    if (device().state() != KVPeripheralStateConnected) device().linkUp();
    delegate_.didConnectPeripheral(*this, radio_.peripheral_);
  }
  void endLink(std::optional<KVError> error) {
    if (device().state() == KVPeripheralStateDisconnected) return;
    device().linkDown();
    if (wanted_) device().setState(KVPeripheralStateConnecting);
    delegate_.didDisconnectPeripheral(*this, radio_.peripheral_, error);
  }

  HostileRadio& radio_;
  KVCentralDelegate& delegate_;
  bool scanning_ = false;
  bool wanted_ = false;
};

HostileRadio::HostileRadio(std::shared_ptr<KVEventQueue> queue, kvsim::VirtualTag& tag,
                           Input& input)
    : queue_(queue), peripheral_(std::make_shared<HostilePeripheral>(queue, tag, input)) {
  peripheral_->onDrop = [this] { dropLink(); };
}

std::shared_ptr<KVCentral> HostileRadio::makeCentral(KVCentralDelegate& delegate,
                                                     const std::shared_ptr<KVEventQueue>&) {
  const auto central = std::make_shared<Central>(*this, delegate);
  central_ = central;
  queue_->post([weak = std::weak_ptr(central)] {
    if (const auto made = weak.lock()) made->stateChanged();
  });
  return central;
}

void HostileRadio::setPowered(bool powered) {
  if (std::exchange(powered_, powered) == powered) return;
  if (const auto central = central_.lock()) central->stateChanged();
}

void HostileRadio::advertise(KVBytes frame) {
  if (const auto central = central_.lock()) central->heard(KVData(frame.begin(), frame.end()));
}

void HostileRadio::dropLink() {
  if (const auto central = central_.lock()) central->linkLost();
}

}  // namespace kvfuzz

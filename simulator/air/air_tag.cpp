// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobSimulator/AirTag.h"

#include <optional>
#include <utility>

#include "simulator/air/adapter_watch.h"
#include "simulator/air/advertisement.h"
#include "simulator/air/gatt_application.h"

namespace kvsim {
namespace {

using namespace std::chrono_literals;

constexpr auto kRegisterTimeout = 20s;
// Between attempts to register, and to reach a bus that is not there.
constexpr auto kRetry = 2s;

bool isDone(const kv::BusFault& fault) {
  return !fault || fault->name == "org.bluez.Error.AlreadyExists";
}

}  // namespace

class AirTag::Air : public TagLink, public std::enable_shared_from_this<Air> {
 public:
  Air(const std::shared_ptr<KVLinuxEventQueue>& queue, AirTagOptions options)
      : queue_(queue), options_(std::move(options)) {}

  ~Air() override {
    if (tag) tag->disconnect();
  }

  void open();
  // Ends all calls to the user.
  void close();

  void notify(GattHandle characteristic, KVData value, std::chrono::nanoseconds delay) override;
  void drop(std::chrono::nanoseconds delay) override;

  AirState state = AirState::Waiting;
  std::string reason;
  StateCallback stateCallback;
  VirtualTag::Observer observer;
  std::shared_ptr<VirtualTag> tag;

  void battery(std::uint8_t value);

 private:
  void makeTag();
  void after(std::chrono::nanoseconds delay, std::function<void(Air&)> task);
  void busLost();
  void changed();
  void registerAt(const std::string& adapter);
  void callManager(const std::string& adapter, const char* interface, const char* member,
                   const char* object);
  void registered(const kv::BusFault& fault);
  void forgetRegistration();
  void onAir();
  void waiting(const std::string& why);
  void setState(AirState next, const std::string& why);
  bool admit(const std::string& device);
  void deviceChanged(const std::string& device, bool connected);
  void begin(const std::string& device);
  void end();

  const std::weak_ptr<KVLinuxEventQueue> queue_;  // a task may own the tag
  AirTagOptions options_;
  std::shared_ptr<kv::BusConnection> bus_;
  std::unique_ptr<AdapterWatch> watch_;
  std::unique_ptr<GattApplication> application_;
  std::unique_ptr<Advertisement> advertisement_;
  std::string registeredAt_;  // the adapter's path; empty while not registered there
  unsigned pending_ = 0;      // registrations that are not answered
  bool failed_ = false;
  std::vector<kv::BusSlot> calls_;
  std::optional<std::string> central_;  // its path; empty while not known
  bool stale_ = false;                  // what is advertised differs from what the tag says
};

void AirTag::Air::makeTag() {
  tag = std::make_shared<VirtualTag>(options_.tag);
  // The application may hold the tag for longer than this.
  tag->setObserver([weak = weak_from_this()](const TagEvent& event) {
    const auto self = weak.lock();
    if (!self) return;
    self->after(0s, [event](Air& air) {
      const auto call = air.observer;
      if (call) call(event);
    });
  });
}

void AirTag::Air::after(std::chrono::nanoseconds delay, std::function<void(Air&)> task) {
  const auto queue = queue_.lock();
  if (!queue) return;
  queue->postAfter(delay, [weak = weak_from_this(), task = std::move(task)] {
    if (const auto self = weak.lock()) task(*self);
  });
}

void AirTag::Air::open() {
  const auto queue = queue_.lock();
  if (!queue) return;
  if (!tag && !options_.tag.address.empty()) makeTag();
  bus_ = kv::BusConnection::open(queue, options_.busAddress,
                                 [this](int) { after(0s, [](Air& air) { air.busLost(); }); });
  watch_ = std::make_unique<AdapterWatch>(
      bus_, options_.adapter,
      AdapterWatch::Events{
          .changed = [this] { after(0s, [](Air& air) { air.changed(); }); },
          .device = [this](const auto& device, bool on) { deviceChanged(device, on); }});
}

void AirTag::Air::close() {
  stateCallback = {};
  observer = {};
  if (central_) drop(0s);
}

void AirTag::Air::busLost() {
  forgetRegistration();
  application_.reset();
  advertisement_.reset();
  watch_.reset();
  waiting("the system bus cannot be reached");
  after(kRetry, [](Air& air) { air.open(); });
}

void AirTag::Air::changed() {
  if (!watch_) return;
  const auto adapter = watch_->adapter();
  const auto name = options_.adapter.empty() ? "Bluetooth adapter" : "adapter " + options_.adapter;
  if (!adapter) {
    forgetRegistration();
    return waiting(watch_->servicePresent() ? "there is no " + name
                                            : "the Bluetooth service does not answer");
  }
  if (!tag) {
    for (const char c : adapter->address) {
      if (c != ':') options_.tag.address += c;
    }
    makeTag();
  }
  if (registeredAt_ != adapter->path) forgetRegistration();
  if (!adapter->powered) return waiting("the " + name + " is off");
  if (!adapter->canAdvertise) return waiting("the " + name + " cannot advertise");
  if (registeredAt_.empty()) {
    registerAt(adapter->path);
  } else if (pending_ == 0 && !failed_) {
    onAir();
  }
}

void AirTag::Air::registerAt(const std::string& adapter) {
  registeredAt_ = adapter;
  failed_ = false;
  if (!application_) {
    application_ = std::make_unique<GattApplication>(
        queue_.lock(), bus_, tag, [this](const std::string& device) { return admit(device); });
    application_->start();
    advertisement_ = std::make_unique<Advertisement>(
        bus_, tag, [this] { after(0s, [](Air& air) { air.forgetRegistration(); }); });
  }
  callManager(adapter, "org.bluez.GattManager1", "RegisterApplication", GattApplication::kPath);
  callManager(adapter, "org.bluez.LEAdvertisingManager1", "RegisterAdvertisement",
              Advertisement::kPath);
}

void AirTag::Air::callManager(const std::string& adapter, const char* interface, const char* member,
                              const char* object) {
  auto call = bus_->methodCall(kBlueZ, adapter, interface, member);
  if (call) {
    sd_bus_message_append_basic(call.get(), 'o', object);
    kv::appendOptions(call.get(), {});
  }
  ++pending_;
  calls_.push_back(
      bus_->call(std::move(call), kRegisterTimeout,
                 [this](const auto&, const kv::BusFault& fault) { registered(fault); }));
}

void AirTag::Air::registered(const kv::BusFault& fault) {
  --pending_;
  if (!isDone(fault)) {
    failed_ = true;
    waiting("bluetoothd does not take the tag: " + fault->text);
  }
  if (pending_ > 0) return;
  if (!failed_) return after(0s, [](Air& air) { air.changed(); });
  after(kRetry, [](Air& air) {
    if (!air.failed_) return;
    air.forgetRegistration();
    air.changed();
  });
}

void AirTag::Air::forgetRegistration() {
  end();
  calls_.clear();
  pending_ = 0;
  failed_ = false;
  registeredAt_.clear();
  stale_ = false;
}

void AirTag::Air::onAir() {
  if (std::exchange(stale_, false)) advertisement_->refresh();
  setState(AirState::OnAir, "on the air as " + tag->address());
}

void AirTag::Air::waiting(const std::string& why) {
  end();
  setState(AirState::Waiting, why);
}

void AirTag::Air::setState(AirState next, const std::string& why) {
  if (state == next && reason == why) return;
  state = next;
  reason = why;
  after(0s, [next, why](Air& air) {
    const auto call = air.stateCallback;
    if (call) call(next, why);
  });
}

bool AirTag::Air::admit(const std::string& device) {
  if (!tag) return false;  // before the adapter's address is known
  if (!central_ || central_->empty()) begin(device);
  return central_ == device;
}

void AirTag::Air::deviceChanged(const std::string& device, bool connected) {
  if (connected) {
    admit(device);
  } else if (central_ == device) {
    end();
  }
}

void AirTag::Air::begin(const std::string& device) {
  if (!central_) tag->connect(*this);
  central_ = device;
}

void AirTag::Air::end() {
  if (!central_) return;
  central_.reset();
  tag->disconnect();
}

void AirTag::Air::notify(GattHandle characteristic, KVData value, std::chrono::nanoseconds delay) {
  after(delay, [characteristic, value = std::move(value), central = central_](Air& air) {
    if (air.central_ == central && air.application_) {
      air.application_->notify(characteristic, value);
    }
  });
}

void AirTag::Air::drop(std::chrono::nanoseconds delay) {
  const auto disconnect = [central = central_](Air& air) {
    if (!central || air.central_ != central || !air.bus_) return;
    air.bus_->send(air.bus_->methodCall(kBlueZ, *central, "org.bluez.Device1", "Disconnect"));
  };
  if (delay.count() > 0) {
    after(delay, disconnect);
  } else {
    disconnect(*this);
  }
}

void AirTag::Air::battery(std::uint8_t value) {
  if (!tag) return;
  tag->setBattery(value);
  if (state == AirState::OnAir) {
    advertisement_->refresh();
  } else {
    stale_ = true;
  }
}

AirTag::AirTag(const std::shared_ptr<KVLinuxEventQueue>& queue, AirTagOptions options)
    : air_(std::make_shared<Air>(queue, std::move(options))) {
  air_->open();
}

AirTag::~AirTag() { air_->close(); }

AirState AirTag::state() const { return air_->state; }

const std::string& AirTag::reason() const { return air_->reason; }

void AirTag::setStateCallback(StateCallback callback) { air_->stateCallback = std::move(callback); }

void AirTag::setObserver(VirtualTag::Observer observer) { air_->observer = std::move(observer); }

std::shared_ptr<VirtualTag> AirTag::tag() const { return air_->tag; }

void AirTag::pressButton() {
  if (air_->tag) air_->tag->pressButton();
}

void AirTag::setBattery(std::uint8_t battery) { air_->battery(battery); }

}  // namespace kvsim

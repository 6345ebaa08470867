#include "platform/linux/bluez/gatt_session.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "platform/linux/bluez/daemon.h"
#include "platform/linux/bluez/errors.h"

namespace kv {
namespace {

constexpr const char* kCharacteristic = "org.bluez.GattCharacteristic1";
// The longest attribute value (Bluetooth Core Specification, Vol 3, Part F, 3.2.9).
constexpr std::size_t kLongestValue = 512;

}  // namespace

GattSession::GattSession(Context& context, std::shared_ptr<BlueZPeripheral> peripheral,
                         std::string devicePath, std::function<void(const std::string& why)> broken)
    : context_(context),
      peripheral_(std::move(peripheral)),
      devicePath_(std::move(devicePath)),
      broken_(std::move(broken)),
      limit_(context),
      changed_(context) {}

GattSession::~GattSession() {
  for (auto& [path, subscription] : subscriptions_) {
    closeSubscription(subscription);
  }
}

void GattSession::discoverServices() {
  std::vector<std::shared_ptr<KVService>> services;
  context_.daemon->tree().forEachService(
      devicePath_, [&](const std::string& path, const ServiceObject& service) {
        services.push_back(std::make_shared<BlueZService>(service.uuid, path));
      });
  post([services = std::move(services)](BlueZPeripheral& peripheral,
                                        KVPeripheralDelegate& delegate) {
    peripheral.setServices(services);
    delegate.didDiscoverServices(peripheral, std::nullopt);
  });
}

void GattSession::discoverCharacteristics(const std::shared_ptr<BlueZService>& service) {
  std::vector<std::shared_ptr<KVCharacteristic>> characteristics;
  context_.daemon->tree().forEachCharacteristic(
      service->path(), [&](const std::string& path, const CharacteristicObject& characteristic) {
        characteristics.push_back(
            std::make_shared<BlueZCharacteristic>(characteristic.uuid, service, path));
      });
  post([service, characteristics = std::move(characteristics)](BlueZPeripheral& peripheral,
                                                               KVPeripheralDelegate& delegate) {
    service->setCharacteristics(characteristics);
    delegate.didDiscoverCharacteristicsForService(peripheral, *service, std::nullopt);
  });
}

void GattSession::setNotify(bool enabled,
                            const std::shared_ptr<BlueZCharacteristic>& characteristic) {
  enqueue({enabled ? Kind::subscribe : Kind::unsubscribe, characteristic});
}

void GattSession::read(const std::shared_ptr<BlueZCharacteristic>& characteristic) {
  enqueue({Kind::read, characteristic});
}

void GattSession::write(const std::shared_ptr<BlueZCharacteristic>& characteristic, KVData value) {
  enqueue({Kind::write, characteristic, std::move(value)});
}

void GattSession::enqueue(Request request) {
  requests_.push_back(std::move(request));
  next();
}

void GattSession::next() {
  if (busy_ || requests_.empty()) {
    return;
  }
  busy_ = true;
  switch (requests_.front().kind) {
    case Kind::subscribe:
      subscribe();
      break;
    case Kind::unsubscribe:
      unsubscribe();
      break;
    case Kind::read:
      sendRead();
      break;
    case Kind::write:
      sendWrite();
      break;
  }
}

void GattSession::finish() {
  limit_.cancel();
  busy_ = false;
  requests_.pop_front();
  next();
}

BusMessage GattSession::characteristicCall(const char* member) const {
  return context_.daemon->methodCall(requests_.front().characteristic->path(), kCharacteristic,
                                     member);
}

void GattSession::send(BusMessage message, BusConnection::Answer answered) {
  // The limit is ours: it also covers an answer that comes in several steps.
  if (!limit_.pending()) {
    limit_.set(context_.options.requestTimeout,
               [this] { broken_("the tag does not answer a request"); });
  }
  call_ = context_.daemon->call(std::move(message), 2 * context_.options.requestTimeout,
                                std::move(answered));
}

bool GattSession::linkIsGone(const BusFault& error) {
  const Fault fault = classify(error);
  if (fault == Fault::notConnected || fault == Fault::noDaemon) {
    // The end of the link is about to be signalled, and takes this request with it; if it is not,
    // the request's limit ends the link.
    return true;
  }
  if (fault == Fault::noReply) {
    broken_("the tag does not answer a request");
    return true;
  }
  return false;
}

void GattSession::subscribe() {
  if (subscriptions_.contains(requests_.front().characteristic->path())) {
    finish();
    return;
  }
  BusMessage message = characteristicCall("AcquireNotify");
  if (message) {
    appendOptions(message.get(), {});
  }
  send(std::move(message),
       [this](const BusMessage& reply, const BusFault& error) { acquired(reply, error); });
}

void GattSession::acquired(const BusMessage& reply, const BusFault& error) {
  int fd = -1;
  std::uint16_t mtu = 0;
  if (error || sd_bus_message_read(reply.get(), "hq", &fd, &mtu) < 0) {
    if (!linkIsGone(error)) {
      startNotify();
    }
    return;
  }
  const auto& characteristic = requests_.front().characteristic;
  Subscription& subscription = subscriptions_[characteristic->path()];
  subscription.characteristic = characteristic;
  subscription.socket = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  fcntl(subscription.socket, F_SETFL, O_NONBLOCK);
  subscription.watch = context_.queue->watch(
      subscription.socket, POLLIN, [weak = weak_from_this(), path = characteristic->path()](short) {
        if (const auto session = weak.lock()) {
          session->drain(path);
        }
      });
  finish();
}

void GattSession::startNotify() {
  send(characteristicCall("StartNotify"), [this](const BusMessage&, const BusFault& error) {
    // InProgress: this bus client has the subscription already.
    if (!error || classify(error) == Fault::inProgress) {
      const auto& characteristic = requests_.front().characteristic;
      subscriptions_[characteristic->path()].characteristic = characteristic;
    } else if (linkIsGone(error)) {
      return;
    } else {
      context_.log("no notifications: " + error->name + ": " + error->text);
    }
    finish();
  });
}

void GattSession::drain(const std::string& path) {
  const auto found = subscriptions_.find(path);
  if (found == subscriptions_.end()) {
    return;
  }
  std::array<std::uint8_t, kLongestValue> buffer{};
  for (;;) {
    const ssize_t size = recv(found->second.socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size > 0) {
      postValue(found->second.characteristic, KVData(buffer.begin(), buffer.begin() + size),
                std::nullopt);
    } else if (size < 0 && errno == EINTR) {
      continue;
    } else if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      return;
    } else {
      // The daemon has closed it, as it does when the link ends.
      found->second.watch.reset();
      return;
    }
  }
}

void GattSession::unsubscribe() {
  const auto found = subscriptions_.find(requests_.front().characteristic->path());
  if (found != subscriptions_.end()) {
    closeSubscription(found->second);
    subscriptions_.erase(found);
  }
  finish();
}

void GattSession::closeSubscription(Subscription& subscription) {
  subscription.watch.reset();
  if (subscription.socket >= 0) {
    close(std::exchange(subscription.socket, -1));
  } else {
    context_.daemon->send(context_.daemon->methodCall(subscription.characteristic->path(),
                                                      kCharacteristic, "StopNotify"));
  }
}

void GattSession::sendRead() {
  const auto found = subscriptions_.find(requests_.front().characteristic->path());
  if (found != subscriptions_.end() && found->second.socket < 0) {
    valuesDuringRead_.emplace();
  }
  BusMessage message = characteristicCall("ReadValue");
  if (message) {
    appendOptions(message.get(), {});
  }
  send(std::move(message),
       [this](const BusMessage& reply, const BusFault& error) { readDone(reply, error); });
}

void GattSession::readDone(const BusMessage& reply, const BusFault& error) {
  if (linkIsGone(error)) {
    return;
  }
  const auto characteristic = requests_.front().characteristic;
  // BlueZ signals the value of a read as it does a notification, and before the reply. So of the
  // values that came meanwhile one is the read itself, and the reply adds nothing to them.
  const auto signalled = std::exchange(valuesDuringRead_, std::nullopt);
  const auto bytes = error ? std::nullopt : readBytes(reply.get());
  std::optional<KVData> value;
  if (bytes) {
    value.emplace(bytes->begin(), bytes->end());
  }
  bool reported = false;
  for (const KVData& each : signalled.value_or(std::vector<KVData>())) {
    reported = reported || each == value;
    postValue(characteristic, each, std::nullopt);
  }
  if (!reported) {
    postValue(characteristic, value, error ? std::optional(requestError(*error)) : std::nullopt);
  }
  finish();
}

void GattSession::characteristicValue(std::string_view path, KVBytes value) {
  const auto found = subscriptions_.find(path);
  if (found == subscriptions_.end() || found->second.socket >= 0) {
    return;  // the answer of a read of ours, or of another client's
  }
  KVData bytes(value.begin(), value.end());
  if (valuesDuringRead_ && requests_.front().characteristic->path() == path) {
    valuesDuringRead_->push_back(std::move(bytes));
  } else {
    postValue(found->second.characteristic, std::move(bytes), std::nullopt);
  }
}

void GattSession::sendWrite() {
  BusMessage message = characteristicCall("WriteValue");
  if (message) {
    appendBytes(message.get(), requests_.front().value);
    appendOptions(message.get(), {{"type", "request"}});
  }
  send(std::move(message), [this](const BusMessage&, const BusFault& error) { writeDone(error); });
}

void GattSession::writeDone(const BusFault& error) {
  if (linkIsGone(error)) {
    return;
  }
  post([characteristic = requests_.front().characteristic,
        failure = error ? std::optional(requestError(*error)) : std::nullopt](
           BlueZPeripheral& peripheral, KVPeripheralDelegate& delegate) {
    delegate.didWriteValueForCharacteristic(peripheral, characteristic, failure);
  });
  finish();
}

void GattSession::attributeRemoved(std::string_view path) {
  if (path.starts_with(devicePath_) && path.size() > devicePath_.size() &&
      path[devicePath_.size()] == '/') {
    // The tag's attributes were found anew, at other paths: a call to an old one may never be
    // answered, and the handles that were given out are void. When the device or its adapter is
    // removed the same happens first; then this session is dropped before it is due.
    changed_.set(context_.timing.dropHold, [this] { broken_("the tag's services have changed"); });
  }
}

void GattSession::postValue(const std::shared_ptr<BlueZCharacteristic>& characteristic,
                            std::optional<KVData> value, std::optional<KVError> error) {
  post([characteristic, value = std::move(value), error = std::move(error)](
           BlueZPeripheral& peripheral, KVPeripheralDelegate& delegate) {
    characteristic->setValue(value);
    delegate.didUpdateValueForCharacteristic(peripheral, characteristic, error);
  });
}

void GattSession::post(std::function<void(BlueZPeripheral&, KVPeripheralDelegate&)> event) {
  // What was received before the link ended is delivered, so the session need not last.
  context_.queue->post([open = context_.open, peripheral = peripheral_, event = std::move(event)] {
    const auto delegate = peripheral->delegate();
    if (*open && delegate) {
      event(*peripheral, *delegate);
    }
  });
}

}  // namespace kv

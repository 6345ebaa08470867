// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bluez/gatt_session.h"

#include <algorithm>
#include <utility>

#include "platform/linux/bluez/daemon.h"
#include "platform/linux/bluez/errors.h"
#include "platform/linux/bus/names.h"

namespace kv {

GattSession::GattSession(Context& context, std::shared_ptr<BlueZPeripheral> peripheral,
                         std::string devicePath, std::function<void(Broken why)> broken)
    : context_(context),
      peripheral_(std::move(peripheral)),
      devicePath_(std::move(devicePath)),
      broken_(std::move(broken)),
      limit_(context.queue),
      retry_(context.queue),
      changed_(context.queue) {}

GattSession::~GattSession() {
  for (const auto& [path, characteristic] : subscriptions_) stopNotify(path);
}

// The daemon has discovered everything before the link counts as up; nothing is asked of the tag.
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
  enqueue({enabled ? Kind::Subscribe : Kind::Unsubscribe, characteristic});
}

void GattSession::read(const std::shared_ptr<BlueZCharacteristic>& characteristic) {
  enqueue({Kind::Read, characteristic});
}

void GattSession::write(const std::shared_ptr<BlueZCharacteristic>& characteristic, KVData value) {
  enqueue({Kind::Write, characteristic, std::move(value)});
}

void GattSession::enqueue(Request request) {
  requests_.push_back(std::move(request));
  next();
}

void GattSession::next() {
  if (busy_ || requests_.empty()) return;
  busy_ = true;
  retryPause_ = context_.timing.requestRetryFirst;
  perform();
}

void GattSession::perform() {
  switch (requests_.front().kind) {
    case Kind::Subscribe:
      subscribe();
      break;
    case Kind::Unsubscribe:
      unsubscribe();
      break;
    case Kind::Read:
      sendRead();
      break;
    case Kind::Write:
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
  return context_.daemon->methodCall(requests_.front().characteristic->path(),
                                     bluez::kGattCharacteristic, member);
}

void GattSession::send(BusMessage message, BusConnection::Answer answered) {
  // The limit is ours: it also covers an answer that comes in several steps.
  if (!limit_.pending()) {
    limit_.set(context_.options.requestTimeout, [this] { broken_(Broken::Silent); });
  }
  call_ = context_.daemon->call(std::move(message), 2 * context_.options.requestTimeout,
                                std::move(answered));
}

bool GattSession::settles(const BusFault& error) {
  switch (classify(error)) {
    case Fault::NotConnected:
    case Fault::NoDaemon:
    case Fault::NoBus:
      // The end of the link is about to be signalled, and takes this request with it; if it is not,
      // the request's limit ends the link.
      return false;
    case Fault::NoReply:
      broken_(Broken::Silent);
      return false;
    case Fault::InvalidHandle:
      broken_(Broken::Stale);
      return false;
    case Fault::InProgress:
      // The daemon carries out one request to a characteristic at a time, of whichever program, and
      // queues none. With two programs on one tag their requests meet when a link has come up. The
      // limit of the request stays, so a daemon that is busy for good ends the link.
      retry_.set(retryPause_, [this] { perform(); });
      retryPause_ = std::min(2 * retryPause_, context_.timing.requestRetryMost);
      return false;
    default:
      return true;
  }
}

void GattSession::sendRead() {
  // What was held while an earlier try was refused stays held, for the order.
  if (!valuesDuringRead_ && subscriptions_.contains(requests_.front().characteristic->path())) {
    valuesDuringRead_.emplace();
  }
  BusMessage message = characteristicCall(bluez::kReadValue);
  if (message) appendOptions(message.get(), {});
  send(std::move(message),
       [this](const BusMessage& reply, const BusFault& error) { readDone(reply, error); });
}

void GattSession::readDone(const BusMessage& reply, const BusFault& error) {
  if (!settles(error)) return;
  const auto characteristic = requests_.front().characteristic;
  // BlueZ signals the value of a read as it does a notification, and before the reply. So of the
  // values that came meanwhile one is the read itself, and the reply adds nothing to them.
  const auto signalled = std::exchange(valuesDuringRead_, std::nullopt);
  std::optional<KVData> value;
  if (!error) {
    if (const auto bytes = readBytes(reply.get())) value.emplace(bytes->begin(), bytes->end());
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

void GattSession::sendWrite() {
  BusMessage message = characteristicCall(bluez::kWriteValue);
  if (message) {
    // Without a type the daemon prefers a reliable write, and a command could overtake the write
    // that subscribes.
    appendBytes(message.get(), requests_.front().value);
    appendOptions(message.get(), {{"type", "request"}});
  }
  send(std::move(message), [this](const BusMessage&, const BusFault& error) { writeDone(error); });
}

void GattSession::writeDone(const BusFault& error) {
  if (!settles(error)) return;
  post([characteristic = requests_.front().characteristic,
        failure = error ? std::optional(requestError(*error)) : std::nullopt](
           BlueZPeripheral& peripheral, KVPeripheralDelegate& delegate) {
    delegate.didWriteValueForCharacteristic(peripheral, characteristic, failure);
  });
  finish();
}

void GattSession::attributeRemoved(std::string_view path) {
  if (path.starts_with(devicePath_ + '/')) {
    // The tag's attributes were found anew, at other paths: a call to an old one may never be
    // answered, and the handles that were given out are void. When the device or its adapter is
    // removed the same happens first; then this session is dropped before it is due.
    changed_.set(context_.timing.dropHold, [this] { broken_(Broken::Changed); });
  }
}

void GattSession::postValue(const std::shared_ptr<BlueZCharacteristic>& characteristic,
                            std::optional<KVData> value, std::optional<KVError> error) {
  post([characteristic, value = std::move(value), error = std::move(error)](
           BlueZPeripheral& peripheral, KVPeripheralDelegate& delegate) {
    characteristic->setValue(value);  // not before, as earlier events may still be queued
    delegate.didUpdateValueForCharacteristic(peripheral, characteristic, error);
  });
}

void GattSession::post(std::function<void(BlueZPeripheral&, KVPeripheralDelegate&)> event) {
  // What was received before the link ended is delivered, so the session need not last.
  context_.queue.post([open = context_.open, peripheral = peripheral_, event = std::move(event)] {
    const auto delegate = peripheral->delegate();
    if (*open && delegate) event(*peripheral, *delegate);
  });
}

}  // namespace kv

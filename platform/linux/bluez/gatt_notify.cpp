// How notifications reach a session: as signals of the daemon. They could have a socket of their
// own, too (AcquireNotify), but with releases before 2026 a link that is lost meanwhile, or a
// client that dies, leaves the daemon with a pointer to freed memory, and any later subscription
// refused.
#include <utility>

#include "platform/linux/bluez/daemon.h"
#include "platform/linux/bluez/errors.h"
#include "platform/linux/bluez/gatt_session.h"

namespace kv {

void GattSession::subscribe() {
  if (subscriptions_.contains(requests_.front().characteristic->path())) {
    finish();
    return;
  }
  send(characteristicCall("StartNotify"), [this](const BusMessage&, const BusFault& error) {
    // InProgress: this bus client has the subscription already.
    if (!error || classify(error) == Fault::inProgress) {
      const auto& characteristic = requests_.front().characteristic;
      subscriptions_.emplace(characteristic->path(), characteristic);
    } else if (endsTheLink(error)) {
      return;
    } else {
      context_.log("no notifications: " + error->name + ": " + error->text);
    }
    finish();
  });
}

void GattSession::unsubscribe() {
  const std::string path = requests_.front().characteristic->path();
  if (subscriptions_.erase(path) != 0) {
    stopNotify(path);
  }
  finish();
}

// Also for a link that has ended: else the daemon subscribes anew with the next one, at its own
// time.
void GattSession::stopNotify(const std::string& path) {
  context_.daemon->send(context_.daemon->methodCall(path, kCharacteristic, "StopNotify"));
}

void GattSession::characteristicValue(std::string_view path, KVBytes value) {
  const auto found = subscriptions_.find(path);
  if (found == subscriptions_.end()) {
    return;  // the answer of a read of ours, or of another client's
  }
  KVData bytes(value.begin(), value.end());
  if (valuesDuringRead_ && requests_.front().characteristic->path() == path) {
    valuesDuringRead_->push_back(std::move(bytes));
  } else {
    postValue(found->second, std::move(bytes), std::nullopt);
  }
}

}  // namespace kv

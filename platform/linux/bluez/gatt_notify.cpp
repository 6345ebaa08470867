// How notifications reach a session: through a socket of their own where the daemon offers one,
// else through its signals.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "platform/linux/bluez/daemon.h"
#include "platform/linux/bluez/errors.h"
#include "platform/linux/bluez/gatt_session.h"

namespace kv {
namespace {

// The longest attribute value (Bluetooth Core Specification, Vol 3, Part F, 3.2.9).
constexpr std::size_t kLongestValue = 512;

}  // namespace

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
    context_.daemon->send(context_.daemon->methodCall(
        subscription.characteristic->path(), "org.bluez.GattCharacteristic1", "StopNotify"));
  }
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

}  // namespace kv

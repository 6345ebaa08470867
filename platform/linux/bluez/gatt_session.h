// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The attributes of one link, and the requests to them.
#ifndef PLATFORM_LINUX_BLUEZ_GATT_SESSION_H
#define PLATFORM_LINUX_BLUEZ_GATT_SESSION_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KVFobLink/KVBluetooth.h"
#include "platform/linux/bluez/context.h"
#include "platform/linux/bluez/peripheral.h"
#include "platform/linux/bus/connection.h"

namespace kv {

/// One queue of requests, one at a time, so that what is asked first is done first. A request that
/// the daemon refuses with InProgress, as it carries out that of another program, is sent again.
/// Events are posted. Dropping the session drops the requests that have not been answered.
class GattSession : public std::enable_shared_from_this<GattSession> {
 public:
  /// Why the link has to be given up.
  enum class Broken {
    Silent,   ///< A request was not answered in time.
    Changed,  ///< The tag's attributes were found anew.
    Stale,    ///< They are not where the daemon remembers them.
  };

  GattSession(Context& context, std::shared_ptr<BlueZPeripheral> peripheral, std::string devicePath,
              std::function<void(Broken why)> broken);
  ~GattSession();

  void discoverServices();
  void discoverCharacteristics(const std::shared_ptr<BlueZService>& service);
  void setNotify(bool enabled, const std::shared_ptr<BlueZCharacteristic>& characteristic);
  void read(const std::shared_ptr<BlueZCharacteristic>& characteristic);
  void write(const std::shared_ptr<BlueZCharacteristic>& characteristic, KVData value);

  /// A `Value` that the daemon has signalled.
  void characteristicValue(std::string_view path, KVBytes value);
  void attributeRemoved(std::string_view path);

 private:
  enum class Kind { Subscribe, Unsubscribe, Read, Write };
  struct Request {
    Kind kind;
    std::shared_ptr<BlueZCharacteristic> characteristic;
    KVData value = {};
  };

  void enqueue(Request request);
  void next();
  void perform();
  void finish();
  void subscribe();
  void subscribed(const BusFault& error);
  void unsubscribe();
  void stopNotify(const std::string& path);
  void sendRead();
  void readDone(const BusMessage& reply, const BusFault& error);
  void sendWrite();
  void writeDone(const BusFault& error);
  void send(BusMessage message, BusConnection::Answer answered);
  BusMessage characteristicCall(const char* member) const;
  /// Whether an answer settles the request. Else it is sent again later, or the link is about to
  /// end.
  bool settles(const BusFault& error);
  void post(std::function<void(BlueZPeripheral&, KVPeripheralDelegate&)> event);
  void postValue(const std::shared_ptr<BlueZCharacteristic>& characteristic,
                 std::optional<KVData> value, std::optional<KVError> error);

  Context& context_;
  std::shared_ptr<BlueZPeripheral> peripheral_;
  std::string devicePath_;
  std::function<void(Broken)> broken_;
  std::deque<Request> requests_;
  bool busy_ = false;
  std::map<std::string, std::shared_ptr<BlueZCharacteristic>, std::less<>> subscriptions_;
  /// While a read of a subscribed characteristic is under way: the values signalled meanwhile.
  std::optional<std::vector<KVData>> valuesDuringRead_;
  BusSlot call_;
  Timer limit_;
  Timer retry_;
  std::chrono::milliseconds retryPause_{0};
  Timer changed_;  ///< The attributes have changed, and the link is still there.
};

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_GATT_SESSION_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A small bluetoothd: it keeps objects, signals what changes and answers calls, each as scripted.
#ifndef TESTS_BLUEZ_FAKE_BLUEZ_H
#define TESTS_BLUEZ_FAKE_BLUEZ_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "KVFobLink/KVLinuxPlatform.h"
#include "KVFobLink/KVTypes.h"
#include "platform/linux/bus/object.h"

namespace kvtest {

inline constexpr const char* kAdapter = "org.bluez.Adapter1";
inline constexpr const char* kDevice = "org.bluez.Device1";
inline constexpr const char* kService = "org.bluez.GattService1";
inline constexpr const char* kCharacteristic = "org.bluez.GattCharacteristic1";
/// An adapter that no machine has, so that nothing reaches a real one.
inline constexpr const char* kHci = "/org/bluez/hci90";
inline constexpr const char* kFailed = "org.bluez.Error.Failed";

class FakeBlueZ {
 public:
  using ServiceData = std::map<std::string, KVData>;
  using Value =
      std::variant<bool, std::int16_t, std::string, KVData, std::vector<std::string>, ServiceData>;
  using Properties = std::map<std::string, Value>;
  using Script = std::function<void(const kv::BusCall& call)>;

  /// Owns org.bluez on the bus at `address` once the queue has run, with no objects.
  FakeBlueZ(std::shared_ptr<KVLinuxEventQueue> queue, const std::string& address);
  /// Goes as if killed: no signal but the loss of the name.
  ~FakeBlueZ();

  /// Whether org.bluez is owned.
  bool ready() const { return ready_; }

  // ---- The objects

  void add(const std::string& path, const std::string& interface, Properties properties);
  void remove(const std::string& path);
  void set(const std::string& path, const std::string& interface, const std::string& property,
           Value value);
  /// Signals several properties at once, and what is not known any more.
  void set(const std::string& path, const std::string& interface, const Properties& properties,
           const std::vector<std::string>& invalidated = {});
  /// Changes a property and does not tell.
  void setUnsignalled(const std::string& path, const std::string& interface,
                      const std::string& property, Value value) {
    objects_[path][interface][property] = std::move(value);
  }
  /// Drops one object and does not tell.
  void removeUnsignalled(const std::string& path) { objects_.erase(path); }
  void addAdapter(const std::string& path = kHci, const std::string& address = "00:00:00:00:00:01",
                  bool powered = true);
  /// Powers an adapter off as BlueZ does: the links end first.
  void powerOff();

  // ---- The tag

  static std::string devicePath(const std::string& address, const std::string& adapter = kHci);
  /// The tag is heard.
  void advertise(const std::string& address, const KVData& frame, std::int16_t rssi = -60);
  void setConnected(const std::string& address, bool connected);
  void setResolved(const std::string& address, bool resolved);
  /// Tells why a link ends or has ended, as newer daemons do.
  void tellWhyDisconnected(const std::string& address, const std::string& reason,
                           const std::string& text);
  /// Exports a command service with one characteristic, and another service.
  void addServices(const std::string& address);
  /// What a property holds that was set to a text.
  std::string text(const std::string& path, const std::string& interface,
                   const std::string& property) const;
  static std::string characteristicPath(const std::string& address);
  bool subscribed(const std::string& address) const;
  /// The tag sends a notification, if it is subscribed.
  void notify(const std::string& address, const KVData& value);

  // ---- The calls

  /// Answers the method `member` from now on in place of the default. The defaults are those of a
  /// tag in range that answers everything.
  void on(const std::string& member, Script script) {
    scripts_[member] = std::make_shared<Script>(std::move(script));
  }
  /// Back to the default.
  void restore(const std::string& member) { scripts_.erase(member); }
  /// What the default does.
  void answer(const kv::BusCall& call);
  /// How often a method was called, on any object or on one device.
  int calls(const std::string& member) const;
  int calls(const std::string& member, const std::string& address) const;
  /// Calls since the last time this was asked, in order.
  std::vector<std::string> takeCalls();
  static std::string addressOf(const kv::BusCall& call);

  KVData readValue{0x0a, 0x0b};
  std::vector<KVData> written;
  std::string lastWriteType;

 private:
  static int onMessage(sd_bus_message* message, void* userdata, sd_bus_error* error);
  void handle(sd_bus_message* message);
  void listObjects(const kv::BusCall& call) const;
  void writeValue(const kv::BusCall& call);
  void setText(const kv::BusCall& call);
  static void append(sd_bus_message* message, const Properties& properties);

  std::shared_ptr<KVLinuxEventQueue> queue_;
  std::shared_ptr<kv::BusConnection> bus_;
  kv::BusSlot name_;
  bool ready_ = false;
  sd_bus_slot* handler_ = nullptr;
  std::map<std::string, std::map<std::string, Properties>> objects_;
  std::map<std::string, std::shared_ptr<Script>> scripts_;
  std::vector<std::string> calls_;
  std::map<std::string, int> counts_;        ///< By method,
  std::map<std::string, int> deviceCounts_;  ///< and by method and path.
  std::map<std::string, bool> notifying_;
};

}  // namespace kvtest

#endif  // TESTS_BLUEZ_FAKE_BLUEZ_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Messages of a Bluetooth service that says anything: our copy of its objects stays whole.
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <string>

#include "fuzz/input.h"
#include "platform/linux/bluez/object_tree.h"
#include "platform/linux/bus/message.h"

namespace {

using kvfuzz::Input;
using kvfuzz::require;

constexpr std::array kInterfaces{"org.bluez.Adapter1", "org.bluez.Device1",
                                 "org.bluez.GattService1", "org.bluez.GattCharacteristic1",
                                 "org.example.Other"};
constexpr std::array kPaths{"/org/bluez/hci0",
                            "/org/bluez/hci0/dev_00_00_00_00_00_01",
                            "/org/bluez/hci0/dev_00_00_00_00_00_02",
                            "/org/bluez/hci0/dev_00_00_00_00_00_01/service0001",
                            "/org/bluez/hci0/dev_00_00_00_00_00_01/service0001/char0002",
                            "/org/bluez/hci1",
                            "/"};
constexpr std::array kNames{"Address",     "AddressType", "Alias",   "Powered",
                            "Discovering", "UUID",        "UUIDs",   "RSSI",
                            "ServiceData", "Connected",   "Service", "ServicesResolved",
                            "Value",       "Modalias",    "Unknown"};

// A bus whose other end never answers: good enough to make messages.
sd_bus* deadBus() {
  std::array<int, 2> ends{};
  sd_bus* bus = nullptr;
  require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0 && sd_bus_new(&bus) >= 0 &&
              sd_bus_set_fd(bus, ends[0], ends[0]) >= 0 && sd_bus_start(bus) >= 0,
          "a bus to make messages with");
  return bus;
}

template <std::size_t kCount>
const char* pick(Input& input, const std::array<const char*, kCount>& from) {
  return from[input.ConsumeIntegralInRange<std::size_t>(0, kCount - 1)];
}

// A value of any type, now and then of the right one.
void appendVariant(sd_bus_message* message, Input& input) {
  const std::string text = input.ConsumeRandomLengthString(40);
  const char* word = text.c_str();
  switch (input.ConsumeIntegralInRange(0, 7)) {
    case 0:
      sd_bus_message_append(message, "v", "b", static_cast<int>(input.ConsumeBool()));
      break;
    case 1:
      sd_bus_message_append(message, "v", "n", int{input.ConsumeIntegral<std::int16_t>()});
      break;
    case 2:
      sd_bus_message_append(message, "v", "as", 2, word, "0000ffe1-0000-1000-8000-00805f9b34fb");
      break;
    case 3:
      sd_bus_message_open_container(message, 'v', "ay");
      kv::appendBytes(message, kvfuzz::takeBytes(input, 30));
      sd_bus_message_close_container(message);
      break;
    case 4:
      sd_bus_message_open_container(message, 'v', "a{sv}");
      sd_bus_message_open_container(message, 'a', "{sv}");
      sd_bus_message_open_container(message, 'e', "sv");
      sd_bus_message_append(message, "s", "0000ffe1-0000-1000-8000-00805f9b34fb");
      appendVariant(message, input);
      sd_bus_message_close_container(message);
      sd_bus_message_close_container(message);
      sd_bus_message_close_container(message);
      break;
    case 5:
      sd_bus_message_append(message, "v", "o", pick(input, kPaths));
      break;
    default:  // a text with bytes that D-Bus forbids leaves the message short, and malformed
      sd_bus_message_append(message, "v", "s", word);
  }
}

void appendProperties(sd_bus_message* message, Input& input) {
  sd_bus_message_open_container(message, 'a', "{sv}");
  for (auto left = input.ConsumeIntegralInRange(0, 4); left > 0; --left) {
    sd_bus_message_open_container(message, 'e', "sv");
    sd_bus_message_append(message, "s", pick(input, kNames));
    appendVariant(message, input);
    sd_bus_message_close_container(message);
  }
  sd_bus_message_close_container(message);
}

void appendInterfaces(sd_bus_message* message, Input& input) {
  sd_bus_message_open_container(message, 'a', "{sa{sv}}");
  for (auto left = input.ConsumeIntegralInRange(0, 2); left > 0; --left) {
    sd_bus_message_open_container(message, 'e', "sa{sv}");
    sd_bus_message_append(message, "s", pick(input, kInterfaces));
    appendProperties(message, input);
    sd_bus_message_close_container(message);
  }
  sd_bus_message_close_container(message);
}

class Watcher final : public kv::ObjectTreeObserver {
 public:
  void adaptersChanged() override {}
  void deviceHeard(kv::DeviceObject& device) override { present(device); }
  void deviceChanged(kv::DeviceObject& device) override { present(device); }
  void deviceDisconnected(kv::DeviceObject& device, const std::string& why) override {
    present(device);
    require(why.ends_with(")"), "a reason");
  }
  void deviceRemoved(kv::DeviceObject& device) override {
    require(!device.connected && !device.servicesResolved, "what is gone is not connected");
    require(find(device) != &device, "what is gone is not in the tree");
  }
  void characteristicValue(std::string_view path, KVBytes value) override {
    attributeRemoved(path);
    value_.assign(value.begin(), value.end());  // readable to its end
  }
  void attributeRemoved(std::string_view path) override {
    require(path.starts_with("/"), "a path");
  }

  kv::ObjectTree tree{*this};

 private:
  static bool isDevice(const kv::DeviceObject& device) {
    return device.path.starts_with(device.adapter + kDevice);
  }
  kv::DeviceObject* find(const kv::DeviceObject& device) {
    if (!isDevice(device)) return nullptr;
    return tree.device(device.adapter, device.path.substr(device.adapter.size() + kDevice.size()));
  }
  void present(kv::DeviceObject& device) {
    require(!isDevice(device) || find(device) == &device, "what is told of is in the tree");
  }

  inline static const std::string kDevice = "/dev_";
  KVData value_;
};

void send(sd_bus* bus, Input& input, kv::ObjectTree& tree) {
  sd_bus_message* raw = nullptr;
  require(sd_bus_message_new_signal(bus, &raw, pick(input, kPaths), "org.example", "Any") >= 0,
          "a message");
  const kv::BusMessage message = kv::BusMessage::adopt(raw);
  const int kind = input.ConsumeIntegralInRange(0, 4);
  const int disguise = input.ConsumeIntegralInRange(0, 9) == 0 ? (kind + 1) % 5 : kind;
  if (disguise == 0) {
    sd_bus_message_append(raw, "s", pick(input, kInterfaces));
    appendProperties(raw, input);
    sd_bus_message_append(raw, "as", 1, pick(input, kNames));
  } else if (disguise == 1) {
    sd_bus_message_append(raw, "o", pick(input, kPaths));
    appendInterfaces(raw, input);
  } else if (disguise == 2) {
    sd_bus_message_append(raw, "oas", pick(input, kPaths), 1, pick(input, kInterfaces));
  } else if (disguise == 4) {
    sd_bus_message_append(raw, "ss", pick(input, kNames), pick(input, kNames));
  } else {
    sd_bus_message_open_container(raw, 'a', "{oa{sa{sv}}}");
    for (auto left = input.ConsumeIntegralInRange(0, 3); left > 0; --left) {
      sd_bus_message_open_container(raw, 'e', "oa{sa{sv}}");
      sd_bus_message_append(raw, "o", pick(input, kPaths));
      appendInterfaces(raw, input);
      sd_bus_message_close_container(raw);
    }
    sd_bus_message_close_container(raw);
  }
  if (sd_bus_message_seal(raw, 1, 0) < 0) return;  // not a message at all
  sd_bus_message_rewind(raw, 1);
  if (kind == 0) tree.propertiesChanged(raw);
  if (kind == 1) tree.interfacesAdded(raw);
  if (kind == 2) tree.interfacesRemoved(raw);
  if (kind == 3) tree.load(raw);
  if (kind == 4) tree.disconnected(raw);
}

void check(kv::ObjectTree& tree) {
  int services = 0;
  tree.forEachService(kPaths[1], [&](const std::string& path, const kv::ServiceObject&) {
    ++services;
    require(path.starts_with(kPaths[1]), "a service is below its device");
    tree.forEachCharacteristic(path, [&](const std::string& below, const auto&) {
      require(below.starts_with(path), "a characteristic is below its service");
    });
  });
  require(tree.hasServices(kPaths[1]) == (services > 0), "services are there when they are listed");
  for (const kv::DeviceObject* device : tree.connectedDevices(kPaths[0])) {
    require(device->connected && device->adapter == kPaths[0], "who is connected");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static sd_bus* const bus = deadBus();
  Input input(data, size);
  Watcher watcher;
  while (input.remaining_bytes() > 0) {
    send(bus, input, watcher.tree);
    check(watcher.tree);
  }
  return 0;
}

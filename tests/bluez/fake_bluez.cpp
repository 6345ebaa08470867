// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "tests/bluez/fake_bluez.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace kvtest {
namespace {

constexpr const char* kObjectManager = "org.freedesktop.DBus.ObjectManager";
constexpr const char* kFfe1 = "0000ffe1-0000-1000-8000-00805f9b34fb";

struct Append {
  sd_bus_message* message;

  void operator()(bool value) const {
    sd_bus_message_append(message, "v", "b", static_cast<int>(value));
  }
  void operator()(std::int16_t value) const { sd_bus_message_append(message, "v", "n", value); }
  void operator()(const std::string& value) const {
    sd_bus_message_append(message, "v", "s", value.c_str());
  }
  void operator()(const KVData& value) const {
    sd_bus_message_open_container(message, 'v', "ay");
    kv::appendBytes(message, value);
    sd_bus_message_close_container(message);
  }
  void operator()(const std::vector<std::string>& value) const {
    sd_bus_message_open_container(message, 'v', "as");
    sd_bus_message_open_container(message, 'a', "s");
    for (const auto& each : value) sd_bus_message_append(message, "s", each.c_str());
    sd_bus_message_close_container(message);
    sd_bus_message_close_container(message);
  }
  void operator()(const FakeBlueZ::ServiceData& value) const {
    sd_bus_message_open_container(message, 'v', "a{sv}");
    sd_bus_message_open_container(message, 'a', "{sv}");
    for (const auto& [uuid, data] : value) {
      sd_bus_message_open_container(message, 'e', "sv");
      sd_bus_message_append(message, "s", uuid.c_str());
      (*this)(data);
      sd_bus_message_close_container(message);
    }
    sd_bus_message_close_container(message);
    sd_bus_message_close_container(message);
  }
};

}  // namespace

FakeBlueZ::FakeBlueZ(std::shared_ptr<KVLinuxEventQueue> queue, const std::string& address)
    : queue_(std::move(queue)), bus_(kv::BusConnection::open(queue_, address, {})) {
  bus_->use(
      [this](sd_bus* bus) { return sd_bus_add_fallback(bus, &handler_, "/", onMessage, this); });
  name_ = bus_->requestName(
      "org.bluez", [this](const kv::BusMessage&, const kv::BusFault& error) { ready_ = !error; });
}

FakeBlueZ::~FakeBlueZ() { sd_bus_slot_unref(handler_); }

// ---- The objects

void FakeBlueZ::append(sd_bus_message* message, const Properties& properties) {
  sd_bus_message_open_container(message, 'a', "{sv}");
  for (const auto& [name, value] : properties) {
    sd_bus_message_open_container(message, 'e', "sv");
    sd_bus_message_append(message, "s", name.c_str());
    std::visit(Append{message}, value);
    sd_bus_message_close_container(message);
  }
  sd_bus_message_close_container(message);
}

void FakeBlueZ::add(const std::string& path, const std::string& interface, Properties properties) {
  objects_[path][interface] = properties;
  kv::emitSignal(*bus_, "/", kObjectManager, "InterfacesAdded", [&](sd_bus_message* signal) {
    sd_bus_message_append(signal, "o", path.c_str());
    sd_bus_message_open_container(signal, 'a', "{sa{sv}}");
    sd_bus_message_open_container(signal, 'e', "sa{sv}");
    sd_bus_message_append(signal, "s", interface.c_str());
    append(signal, properties);
    sd_bus_message_close_container(signal);
    sd_bus_message_close_container(signal);
  });
}

void FakeBlueZ::remove(const std::string& path) {
  // What lies below goes first.
  for (auto each = objects_.rbegin(); each != objects_.rend(); ++each) {
    if (each->first == path || each->first.starts_with(path + '/')) {
      for (const auto& entry : each->second) {
        const std::string& interface = entry.first;
        kv::emitSignal(
            *bus_, "/", kObjectManager, "InterfacesRemoved", [&](sd_bus_message* signal) {
              sd_bus_message_append(signal, "oas", each->first.c_str(), 1, interface.c_str());
            });
      }
    }
  }
  std::erase_if(objects_, [&](const auto& each) {
    return each.first == path || each.first.starts_with(path + '/');
  });
}

void FakeBlueZ::set(const std::string& path, const std::string& interface,
                    const std::string& property, Value value) {
  set(path, interface, Properties{{property, std::move(value)}});
}

void FakeBlueZ::set(const std::string& path, const std::string& interface,
                    const Properties& properties, const std::vector<std::string>& invalidated) {
  Properties& known = objects_[path][interface];
  for (const auto& [name, value] : properties) known[name] = value;
  for (const auto& name : invalidated) known.erase(name);
  kv::emitSignal(*bus_, path, "org.freedesktop.DBus.Properties", "PropertiesChanged",
                 [&](sd_bus_message* signal) {
                   sd_bus_message_append(signal, "s", interface.c_str());
                   append(signal, properties);
                   sd_bus_message_open_container(signal, 'a', "s");
                   for (const auto& name : invalidated) {
                     sd_bus_message_append(signal, "s", name.c_str());
                   }
                   sd_bus_message_close_container(signal);
                 });
}

void FakeBlueZ::addAdapter(const std::string& path, const std::string& address, bool powered) {
  add(path, kAdapter,
      {{"Address", address}, {"Powered", powered}, {"Discovering", false}, {"Pairable", true}});
  objects_[path]["org.bluez.Media1"]["SupportedUUIDs"] = std::vector<std::string>{"180a"};
}

void FakeBlueZ::powerOff() {
  for (const auto& [path, interfaces] : std::map(objects_)) {
    if (interfaces.contains(kDevice)) {
      set(path, kDevice, {{"Connected", false}, {"ServicesResolved", false}});
    }
  }
  set(kHci, kAdapter, {{"Powered", false}, {"Discovering", false}});
}

// ---- The tag

std::string FakeBlueZ::devicePath(const std::string& address, const std::string& adapter) {
  std::string path = adapter + "/dev_" + address;
  std::replace(path.begin(), path.end(), ':', '_');
  return path;
}

std::string FakeBlueZ::characteristicPath(const std::string& address) {
  return devicePath(address) + "/service0010/char0011";
}

std::string FakeBlueZ::addressOf(const kv::BusCall& call) {
  const std::string path = sd_bus_message_get_path(call.message());
  std::string address = path.substr(path.find("/dev_") + 5, 17);
  std::replace(address.begin(), address.end(), '_', ':');
  return address;
}

void FakeBlueZ::advertise(const std::string& address, const KVData& frame, std::int16_t rssi) {
  const std::string path = devicePath(address);
  if (objects_.contains(path)) {
    set(path, kDevice, {{"ServiceData", ServiceData{{kFfe1, frame}}}, {"RSSI", rssi}});
  } else {
    add(path, kDevice,
        {{"Address", address},
         {"AddressType", std::string("public")},
         {"Connected", false},
         {"ServicesResolved", false},
         {"RSSI", rssi},
         {"Name", std::string("tag")},
         {"Trusted", true},
         {"TxPower", std::int16_t{4}},
         {"ServiceData", ServiceData{{kFfe1, frame}}}});
  }
}

void FakeBlueZ::setConnected(const std::string& address, bool connected) {
  set(devicePath(address), kDevice, "Connected", connected);
}

void FakeBlueZ::setResolved(const std::string& address, bool resolved) {
  set(devicePath(address), kDevice, "ServicesResolved", resolved);
}

void FakeBlueZ::tellWhyDisconnected(const std::string& address, const std::string& reason,
                                    const std::string& text) {
  kv::emitSignal(*bus_, devicePath(address), kDevice, "Disconnected", [&](sd_bus_message* signal) {
    sd_bus_message_append(signal, "ss", reason.c_str(), text.c_str());
  });
}

void FakeBlueZ::addServices(const std::string& address) {
  const std::string device = devicePath(address);
  add(device + "/service0010", kService,
      {{"Primary", true}, {"UUID", std::string("7f280001-8204-f393-e0a9-e50e24dcca9e")}});
  add(characteristicPath(address), kCharacteristic,
      {{"Flags", std::vector<std::string>{"read", "write", "notify"}},
       {"UUID", std::string("7f280002-8204-f393-e0a9-e50e24dcca9e")},
       {"Value", KVData{}}});
  add(device + "/service0020", kService,
      {{"UUID", std::string("0000180a-0000-1000-8000-00805f9b34fb")}});
}

void FakeBlueZ::notify(const std::string& address, const KVData& value) {
  const std::string path = characteristicPath(address);
  if (notifying_[path]) set(path, kCharacteristic, "Value", value);
}

// ---- The calls

int FakeBlueZ::onMessage(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
  if (sd_bus_message_is_method_call(message, nullptr, nullptr) <= 0) return 0;
  static_cast<FakeBlueZ*>(userdata)->handle(message);
  return 1;
}

void FakeBlueZ::handle(sd_bus_message* message) {
  const std::string member = sd_bus_message_get_member(message);
  calls_.push_back(member);
  ++counts_[member];
  ++deviceCounts_[member + sd_bus_message_get_path(message)];
  const kv::BusCall call(bus_, message);
  const auto script = scripts_.find(member);
  // Answers are posted, as they come from another process in truth.
  queue_->post([this, call, run = script == scripts_.end() ? nullptr : script->second] {
    if (run) {
      (*run)(call);
    } else {
      answer(call);
    }
  });
}

int FakeBlueZ::calls(const std::string& member) const {
  const auto count = counts_.find(member);
  return count == counts_.end() ? 0 : count->second;
}

int FakeBlueZ::calls(const std::string& member, const std::string& address) const {
  const auto count = deviceCounts_.find(member + devicePath(address));
  return count == deviceCounts_.end() ? 0 : count->second;
}

std::string FakeBlueZ::text(const std::string& path, const std::string& interface,
                            const std::string& property) const {
  return std::get<std::string>(objects_.at(path).at(interface).at(property));
}

bool FakeBlueZ::subscribed(const std::string& address) const {
  const auto notifying = notifying_.find(characteristicPath(address));
  return notifying != notifying_.end() && notifying->second;
}

std::vector<std::string> FakeBlueZ::takeCalls() { return std::exchange(calls_, {}); }

void FakeBlueZ::answer(const kv::BusCall& call) {
  const std::string member = sd_bus_message_get_member(call.message());
  const std::string path = sd_bus_message_get_path(call.message());
  if (member == "GetManagedObjects") {
    listObjects(call);
  } else if (!objects_.contains(path)) {
    call.fail("org.freedesktop.DBus.Error.UnknownObject", "No such object");
  } else if (member == "StartDiscovery" || member == "StopDiscovery") {
    call.reply();
    set(path, kAdapter, "Discovering", member == "StartDiscovery");
  } else if (member == "Connect") {
    const std::string address = addressOf(call);
    setConnected(address, true);
    call.reply();
    addServices(address);
    setResolved(address, true);
  } else if (member == "Disconnect") {
    set(path, kDevice, {{"Connected", false}, {"ServicesResolved", false}});
    call.reply();
  } else if (member == "StartNotify" || member == "StopNotify") {
    notifying_[path] = member == "StartNotify";
    call.reply();
  } else if (member == "ReadValue") {
    // The value is signalled too, and first.
    set(path, kCharacteristic, "Value", readValue);
    call.reply([this](sd_bus_message* reply) { kv::appendBytes(reply, readValue); });
  } else if (member == "WriteValue") {
    writeValue(call);
  } else if (member == "Set") {
    setText(call);
  } else {
    call.reply();
  }
}

void FakeBlueZ::listObjects(const kv::BusCall& call) const {
  call.reply([this](sd_bus_message* reply) {
    sd_bus_message_open_container(reply, 'a', "{oa{sa{sv}}}");
    for (const auto& [path, interfaces] : objects_) {
      sd_bus_message_open_container(reply, 'e', "oa{sa{sv}}");
      sd_bus_message_append(reply, "o", path.c_str());
      sd_bus_message_open_container(reply, 'a', "{sa{sv}}");
      for (const auto& [interface, properties] : interfaces) {
        sd_bus_message_open_container(reply, 'e', "sa{sv}");
        sd_bus_message_append(reply, "s", interface.c_str());
        append(reply, properties);
        sd_bus_message_close_container(reply);
      }
      sd_bus_message_close_container(reply);
      sd_bus_message_close_container(reply);
    }
    sd_bus_message_close_container(reply);
  });
}

void FakeBlueZ::setText(const kv::BusCall& call) {
  const char* interface = nullptr;
  const char* name = nullptr;
  const char* text = nullptr;
  if (sd_bus_message_read(call.message(), "ssv", &interface, &name, "s", &text) < 0) return;
  call.reply();
  set(sd_bus_message_get_path(call.message()), interface, name, std::string(text));
}

void FakeBlueZ::writeValue(const kv::BusCall& call) {
  if (const auto bytes = kv::readBytes(call.message())) {
    written.emplace_back(bytes->begin(), bytes->end());
  }
  kv::forEachProperty(call.message(), [&](std::string_view key, std::string_view /*type*/) {
    if (key != "type") return false;
    lastWriteType = kv::readText(call.message());
    return true;
  });
  call.reply();
}

}  // namespace kvtest

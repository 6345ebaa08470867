// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "simulator/air/adapter_watch.h"

#include <strings.h>

#include <string_view>
#include <utility>

namespace kvsim {
namespace {

using namespace std::chrono_literals;

constexpr const char* kObjectManager = "org.freedesktop.DBus.ObjectManager";
constexpr std::string_view kAdapter = "org.bluez.Adapter1";
constexpr std::string_view kDevice = "org.bluez.Device1";
constexpr std::string_view kAdvertising = "org.bluez.LEAdvertisingManager1";
constexpr auto kListTimeout = 20s;

bool isWanted(const AdapterInfo& adapter, const std::string& wanted) {
  return wanted.empty() || adapter.path == "/org/bluez/" + wanted ||
         strcasecmp(adapter.address.c_str(), wanted.c_str()) == 0;
}

}  // namespace

AdapterWatch::AdapterWatch(std::shared_ptr<kv::BusConnection> bus, std::string wanted,
                           Events events)
    : bus_(std::move(bus)), wanted_(std::move(wanted)), events_(std::move(events)) {
  watchSignals();
  listObjects();
}

std::optional<AdapterInfo> AdapterWatch::adapter() const {
  for (const auto& [path, adapter] : adapters_) {
    if (!adapter.address.empty() && isWanted(adapter, wanted_)) return adapter;
  }
  return std::nullopt;
}

void AdapterWatch::watchSignals() {
  const auto add = [this](const std::string& rule, void (AdapterWatch::*handle)(sd_bus_message*)) {
    matches_.push_back(bus_->match("type='signal'," + rule, [this, handle](const auto& message) {
      (this->*handle)(message.get());
    }));
  };
  add("sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='org.bluez'",
      &AdapterWatch::ownerChanged);
  add("sender='org.bluez',member='InterfacesAdded'", &AdapterWatch::interfacesAdded);
  add("sender='org.bluez',member='InterfacesRemoved'", &AdapterWatch::interfacesRemoved);
  add("sender='org.bluez',member='PropertiesChanged',path_namespace='/org/bluez'",
      &AdapterWatch::propertiesChanged);
}

void AdapterWatch::listObjects() {
  listing_ =
      bus_->call(bus_->methodCall(kBlueZ, "/", kObjectManager, "GetManagedObjects"), kListTimeout,
                 [this](const kv::BusMessage& reply, const kv::BusFault& fault) {
                   present_ = !fault;
                   if (present_) readList(reply.get());
                   events_.changed();
                 });
}

void AdapterWatch::readList(sd_bus_message* reply) {
  kv::enter(reply, 'a', "{oa{sa{sv}}}");
  while (kv::enter(reply, 'e', "oa{sa{sv}}")) {
    const std::string path = kv::readText(reply, 'o');
    readInterfaces(path, reply);
    sd_bus_message_exit_container(reply);
  }
}

void AdapterWatch::ownerChanged(sd_bus_message* signal) {
  kv::readText(signal);
  kv::readText(signal);
  const std::string owner = kv::readText(signal);
  forgetAll();
  events_.changed();
  if (!owner.empty()) listObjects();
}

void AdapterWatch::interfacesAdded(sd_bus_message* signal) {
  const std::string path = kv::readText(signal, 'o');
  readInterfaces(path, signal);
  events_.changed();
}

void AdapterWatch::interfacesRemoved(sd_bus_message* signal) {
  const std::string path = kv::readText(signal, 'o');
  for (const auto& interface : kv::readStrings(signal)) {
    if (interface == kDevice) setConnected(path, /*connected=*/false);
    if (interface == kAdapter) adapters_.erase(path);
  }
  events_.changed();
}

void AdapterWatch::propertiesChanged(sd_bus_message* signal) {
  const std::string path = sd_bus_message_get_path(signal);
  const std::string interface = kv::readText(signal);
  readProperties(path, interface, signal);
  if (interface == kAdapter) events_.changed();
}

void AdapterWatch::readInterfaces(const std::string& path, sd_bus_message* message) {
  kv::enter(message, 'a', "{sa{sv}}");
  while (kv::enter(message, 'e', "sa{sv}")) {
    const std::string interface = kv::readText(message);
    readProperties(path, interface, message);
    sd_bus_message_exit_container(message);
  }
  sd_bus_message_exit_container(message);
}

void AdapterWatch::readProperties(const std::string& path, const std::string& interface,
                                  sd_bus_message* message) {
  if (interface == kAdvertising) adapters_[path].canAdvertise = true;
  std::optional<bool> connected;
  kv::forEachProperty(message, [&](std::string_view key, std::string_view type) {
    if (interface == kAdapter && key == "Address" && type == "s") {
      adapters_[path].address = kv::readText(message);
      return true;
    }
    if (type != "b") return false;
    if (interface == kAdapter && key == "Powered") {
      adapters_[path].powered = kv::readBool(message);
      return true;
    }
    if (interface == kDevice && key == "Connected") {
      connected = kv::readBool(message);
      return true;
    }
    return false;
  });
  if (const auto found = adapters_.find(path); found != adapters_.end()) found->second.path = path;
  if (connected) setConnected(path, *connected);
}

void AdapterWatch::setConnected(const std::string& device, bool connected) {
  const bool change = connected ? connected_.insert(device).second : connected_.erase(device) > 0;
  const auto own = adapter();
  // A central is a device below each adapter that knows it. An end counts even if no beginning was
  // signalled: bluetoothd leaves that out when it learns of the link from the socket first.
  if ((change || !connected) && own && device.starts_with(own->path + "/")) {
    events_.device(device, connected);
  }
}

void AdapterWatch::forgetAll() {
  listing_.reset();
  present_ = false;
  adapters_.clear();
  connected_.clear();
}

}  // namespace kvsim

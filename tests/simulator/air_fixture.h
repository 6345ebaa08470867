// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A virtual tag on an adapter of the test's own: the test plays bluetoothd on a private bus. It
/// takes what the tag registers and calls its objects.
#ifndef TESTS_SIMULATOR_AIR_FIXTURE_H
#define TESTS_SIMULATOR_AIR_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KVFobSimulator/AirTag.h"
#include "tests/bluez/fake_bluez.h"
#include "tests/bluez/private_bus.h"

namespace kvsim {

using namespace std::chrono_literals;
using kvtest::FakeBlueZ;
using kvtest::kHci;

inline constexpr const char* kAdapterAddress = "A1:B2:C3:D4:E5:F6";
inline constexpr const char* kFirst = "00:11:22:33:44:01";
inline constexpr const char* kSecond = "00:11:22:33:44:02";
inline constexpr const char* kGattManager = "org.bluez.GattManager1";
inline constexpr const char* kAdvertisingManager = "org.bluez.LEAdvertisingManager1";
inline constexpr const char* kAdvertisement = "org.bluez.LEAdvertisement1";
inline constexpr const char* kAdvertisementPath = "/kvfob/advertisement";
inline constexpr const char* kCommand = "/kvfob/tag/service0/char0";
inline constexpr const char* kDistance = "/kvfob/tag/service1/char0";
inline constexpr const char* kModelNumber = "/kvfob/tag/service2/char0";
inline constexpr auto kPatience = 10s;

inline std::string hex(KVBytes data) {
  std::string text;
  for (const std::uint8_t byte : data) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

class AirTagTest : public ::testing::Test {
 protected:
  AirTagTest() {
    daemon = std::make_unique<FakeBlueZ>(queue, bus.address());
    EXPECT_TRUE(runUntil([this] { return daemon->ready(); }));
    addAdapter();
    openBus();
  }

  /// The test's own connection, also once the bus has been restarted.
  void openBus() {
    calls_ = kv::BusConnection::open(queue, bus.address(), {});
    listen();
  }

  // ---- The daemon's side

  void addAdapter(bool powered = true) {
    daemon->addAdapter(kHci, kAdapterAddress, powered);
    daemon->add(kHci, kGattManager, {});
    daemon->add(kHci, kAdvertisingManager, {});
    for (const char* member : {"RegisterApplication", "RegisterAdvertisement"}) {
      daemon->on(member, [this, member](const kv::BusCall& call) {
        const char* object = nullptr;
        sd_bus_message_read_basic(call.message(), 'o', &object);
        tagName = sd_bus_message_get_sender(call.message());
        registered.push_back(std::string(sd_bus_message_get_path(call.message())) + ' ' + member +
                             ' ' + object);
        call.reply();
      });
    }
  }

  void setConnected(const char* device, bool connected) {
    daemon->set(FakeBlueZ::devicePath(device), kvtest::kDevice, "Connected", connected);
  }

  /// Calls a method of one of the tag's objects. The answer: its bytes in hexadecimal, "done" or
  /// the error; "silence" without one.
  std::string call(const char* path, const char* interface, const char* member,
                   const std::function<void(sd_bus_message*)>& fill = {},
                   const std::function<void(sd_bus_message*)>& read = {},
                   std::chrono::milliseconds timeout = 5s) {
    auto message = calls_->methodCall(tagName, path, interface, member);
    if (fill) fill(message.get());
    std::string answer;
    const auto slot = calls_->call(std::move(message), timeout,
                                   [&](const kv::BusMessage& reply, const kv::BusFault& fault) {
                                     answer = fault ? fault->name + ": " + fault->text : "done";
                                     if (!fault && read) read(reply.get());
                                     if (fault && fault->name.ends_with("NoReply"))
                                       answer = "silence";
                                   });
    EXPECT_TRUE(runUntil([&] { return !answer.empty(); }));
    return answer;
  }

  static void appendDevice(sd_bus_message* message, const char* device) {
    sd_bus_message_append(message, "a{sv}", 1, "device", "o",
                          FakeBlueZ::devicePath(device).c_str());
  }

  std::string read(const char* path, const char* device, std::chrono::milliseconds timeout = 5s) {
    std::string value;
    const std::string answer = call(
        path, kvtest::kCharacteristic, "ReadValue",
        [&](auto* message) { appendDevice(message, device); },
        [&](auto* reply) { value = hex(kv::readBytes(reply).value_or(KVBytes())); }, timeout);
    return answer == "done" ? value : answer;
  }

  std::string write(const char* path, const char* device, const KVData& value) {
    return call(path, kvtest::kCharacteristic, "WriteValue", [&](auto* message) {
      kv::appendBytes(message, value);
      appendDevice(message, device);
    });
  }

  std::string subscribe(bool enabled = true) {
    return call(kCommand, kvtest::kCharacteristic, enabled ? "StartNotify" : "StopNotify");
  }

  /// A property of one of the tag's objects, as text.
  std::string property(const char* path, const char* interface, const char* name) {
    std::string value;
    const std::string answer = call(
        path, "org.freedesktop.DBus.Properties", "Get",
        [&](auto* message) { sd_bus_message_append(message, "ss", interface, name); },
        [&](auto* reply) { value = textOf(reply); });
    return answer == "done" ? value : answer;
  }

  // ---- The tag's side

  AirTag& makeTag(AirTagOptions options = {.adapter = "hci90"}) {
    options.busAddress = bus.address();
    tag = std::make_unique<AirTag>(queue, std::move(options));
    tag->setStateCallback([this](AirState state, const std::string& reason) {
      states.push_back((state == AirState::OnAir ? "on air: " : "waiting: ") + reason);
    });
    tag->setObserver([this](const TagEvent& event) { told.push_back(event.text); });
    return *tag;
  }

  AirTag& putOnAir(AirTagOptions options = {.adapter = "hci90"}) {
    makeTag(std::move(options));
    EXPECT_TRUE(runUntil([this] { return tag->state() == AirState::OnAir; }));
    settle();
    states.clear();
    registered.clear();
    return *tag;
  }

  bool runUntil(const std::function<bool()>& condition) {
    const auto end = queue->now() + kPatience;
    while (!condition() && queue->now() < end) queue->runFor(1ms);
    return condition();
  }
  /// Until all that was sent so far has arrived, and its answers: an answer comes after them.
  void settle() {
    for (int i = 0; i < 3; ++i) {
      bool answered = false;
      const auto slot = calls_->call(
          calls_->methodCall("org.freedesktop.DBus", "/", "org.freedesktop.DBus.Peer", "Ping"),
          kPatience, [&](const auto&, const auto&) { answered = true; });
      EXPECT_TRUE(runUntil([&] { return answered; }));
    }
  }
  template <typename List>
  List took(List& list) {
    settle();
    return std::exchange(list, {});
  }

  using Lines = std::vector<std::string>;

  kvtest::PrivateBus bus;
  std::shared_ptr<KVLinuxEventQueue> queue = KVLinuxPlatform::makeEventQueue();
  std::unique_ptr<FakeBlueZ> daemon;
  std::unique_ptr<AirTag> tag;
  std::string tagName;
  Lines registered;     // what the tag registered: adapter, call, object
  Lines states;         // what the application was told
  Lines told;           // the texts of the tag's events
  Lines notifications;  // path and value
  Lines refreshed;      // the service data that was announced again

 private:
  static std::string textOf(sd_bus_message* reply) {
    const char* contents = nullptr;
    char type = 0;
    sd_bus_message_peek_type(reply, &type, &contents);
    const std::string signature = contents;
    sd_bus_message_enter_container(reply, 'v', contents);
    std::string text;
    const char* string = nullptr;
    if (signature == "s" || signature == "o") {
      sd_bus_message_read_basic(reply, signature[0], &string);
      return string;
    }
    if (signature == "as") {
      for (const auto& each : kv::readStrings(reply)) text += each + ' ';
      return text;
    }
    if (signature == "ay") return hex(kv::readBytes(reply).value_or(KVBytes()));
    if (signature == "a{sv}") {
      kv::forEachBytes(reply, [&](std::string_view key, KVBytes value) {
        text += std::string(key) + '=' + hex(value);
      });
      return text;
    }
    std::uint32_t number = 0;
    sd_bus_message_read_basic(reply, signature[0], &number);
    return std::to_string(number);
  }

  void listen() {
    changes_ = calls_->match("type='signal',member='PropertiesChanged',path_namespace='/kvfob'",
                             [this](const kv::BusMessage& signal) { changed(signal.get()); });
  }

  void changed(sd_bus_message* signal) {
    const char* interface = nullptr;
    const std::string path = sd_bus_message_get_path(signal);
    sd_bus_message_read_basic(signal, 's', &interface);
    kv::forEachProperty(signal, [&](std::string_view key, std::string_view type) {
      if (key == "ServiceData") {
        kv::forEachBytes(signal,
                         [&](std::string_view, KVBytes value) { refreshed.push_back(hex(value)); });
        return true;
      }
      if (key != "Value" || type != "ay") return false;
      notifications.push_back(path + ' ' + hex(kv::readBytes(signal).value_or(KVBytes())));
      return true;
    });
  }

  std::shared_ptr<kv::BusConnection> calls_;
  kv::BusSlot changes_;
};

}  // namespace kvsim

#endif  // TESTS_SIMULATOR_AIR_FIXTURE_H

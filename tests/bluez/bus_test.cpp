// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <cstdarg>

#include "platform/linux/bus/names.h"
#include "platform/linux/bus/object.h"
#include "tests/bluez/private_bus.h"

namespace kvtest {
namespace {

using namespace std::chrono_literals;
using kv::BusConnection;
using kv::BusFault;
using kv::BusMessage;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kName = "org.kvfob.Lamp";
constexpr const char* kLamp = "org.kvfob.Lamp1";
constexpr const char* kLampPath = "/lamps/one";
constexpr const char* kRefused = "org.kvfob.Error.Refused";

// Two programs on one bus: a service with a lamp, and its client.
class BusTest : public testing::Test {
 protected:
  using Texts = std::vector<std::string>;

  void SetUp() override {
    ASSERT_FALSE(bus.address().empty()) << "dbus-daemon did not start";
    service = BusConnection::open(queue, bus.address(), {});
    client =
        BusConnection::open(queue, bus.address(), [this](int error) { lost.push_back(error); });
  }

  [[nodiscard]] bool waitFor(const std::function<bool()>& condition) {
    const auto limit = queue->now() + 10s;
    while (!condition() && queue->now() < limit) {
      pollfd ready{queue->fd(), POLLIN, 0};
      poll(&ready, 1, 100);
      queue->dispatch();
    }
    return condition();
  }

  // Owns the name, and offers the lamp with an ObjectManager above it.
  void startService() {
    bool owned = false;
    nameSlot = service->requestName(kName, [&](const BusMessage&, const BusFault& error) {
      EXPECT_FALSE(error);
      owned = true;
    });
    manager = kv::exportObjectManager(service, "/lamps");
    lamp = kv::exportInterface(service, kLampPath, lampInterface());
    ASSERT_TRUE(waitFor([&] { return owned; }));
  }

  kv::BusInterface lampInterface() {
    kv::BusInterface interface { .name = kLamp };
    interface.methods.push_back(
        {"Double", "i", "i", [](const kv::BusCall& call) {
           int value = 0;
           sd_bus_message_read(call.message(), "i", &value);
           call.reply([&](sd_bus_message* reply) { sd_bus_message_append(reply, "i", 2 * value); });
         }});
    interface.methods.push_back(
        {"Refuse", "", "", [](const kv::BusCall& call) { call.fail(kRefused, "100 % no"); }});
    interface.methods.push_back({"Ignore", "", "", [](const kv::BusCall&) {}});
    interface.methods.push_back({"Note", "s", "", [this](const kv::BusCall& call) {
                                   ++noted;
                                   replyExpected = sd_bus_message_get_expect_reply(call.message());
                                 }});
    interface.properties.push_back({"Level", "i",
                                    [this](sd_bus_message* value) {
                                      return level >= 0 &&
                                             sd_bus_message_append(value, "i", level) >= 0;
                                    },
                                    [this](sd_bus_message* value) {
                                      int wanted = 0;
                                      sd_bus_message_read(value, "i", &wanted);
                                      if (wanted > 100) return false;
                                      level = wanted;
                                      return true;
                                    }});
    interface.properties.push_back({"Colour", "s", [](sd_bus_message* value) {
                                      return sd_bus_message_append(value, "s", "red") >= 0;
                                    }});
    return interface;
  }

  // Waits for the outcome of one call: the number or text of the reply, or the error's name.
  std::string call(const char* interface, const char* member, const char* types = "", ...) {
    BusMessage message = client->methodCall(kName, kLampPath, interface, member);
    va_list arguments;
    va_start(arguments, types);
    sd_bus_message_appendv(message.get(), types, arguments);
    va_end(arguments);
    std::optional<std::string> outcome;
    const auto slot =
        client->call(std::move(message), 5s, [&](const BusMessage& reply, const BusFault& error) {
          outcome = error ? error->name : content(reply.get());
        });
    EXPECT_TRUE(waitFor([&] { return outcome.has_value(); }));
    return outcome.value_or("nothing");
  }

  static std::string content(sd_bus_message* message) {
    int number = 0;
    const char* text = nullptr;
    char type = 0;
    const char* inner = nullptr;
    sd_bus_message_peek_type(message, &type, &inner);
    if (type == 'v') sd_bus_message_enter_container(message, 'v', inner);
    if (sd_bus_message_read_basic(message, 'i', &number) > 0) return std::to_string(number);
    if (sd_bus_message_read_basic(message, 's', static_cast<void*>(&text)) > 0) return text;
    return "empty";
  }

  PrivateBus bus;
  std::shared_ptr<KVLinuxEventQueue> queue = KVLinuxPlatform::makeEventQueue();
  std::vector<int> lost;
  int level = 7;
  int noted = 0;
  int replyExpected = 0;
  std::shared_ptr<BusConnection> service;
  std::shared_ptr<BusConnection> client;
  kv::BusSlot nameSlot;
  kv::BusSlot manager;
  kv::BusSlot lamp;
};

TEST_F(BusTest, ObjectAnswersForItsMethodsAndProperties) {
  startService();
  EXPECT_EQ(call(kLamp, "Double", "i", 21), "42");
  EXPECT_EQ(call(kLamp, "Refuse"), kRefused);
  EXPECT_EQ(call(kLamp, "Explode"), kv::dbus::kUnknownMethod);
  EXPECT_EQ(call(kv::dbus::kProperties, "Get", "ss", kLamp, "Level"), "7");
  EXPECT_EQ(call(kv::dbus::kProperties, "Get", "ss", kLamp, "Colour"), "red");
  EXPECT_EQ(call(kv::dbus::kProperties, "Set", "ssv", kLamp, "Level", "i", 9), "empty");
  EXPECT_EQ(call(kv::dbus::kProperties, "Get", "ss", kLamp, "Level"), "9");
  EXPECT_EQ(call(kv::dbus::kProperties, "Set", "ssv", kLamp, "Level", "i", 101),
            "org.freedesktop.DBus.Error.InvalidArgs");
  EXPECT_EQ(call(kv::dbus::kProperties, "Set", "ssv", kLamp, "Colour", "s", "blue"),
            "org.freedesktop.DBus.Error.PropertyReadOnly");
  EXPECT_EQ(level, 9);
  level = -1;
  EXPECT_EQ(call(kv::dbus::kProperties, "Get", "ss", kLamp, "Level"),
            "org.freedesktop.DBus.Error.InvalidArgs");
  lamp.reset();
  EXPECT_EQ(call(kLamp, "Double", "i", 21), kv::dbus::kUnknownObject);
}

TEST_F(BusTest, SignalsReachWhoeverMatchesThem) {
  startService();
  Texts seen;
  const auto note = [&](const BusMessage& signal) {
    const std::string member = sd_bus_message_get_member(signal.get());
    std::string text = member + ' ' + sd_bus_message_get_path(signal.get());
    if (member == "Flicker") text += ' ' + content(signal.get());
    seen.push_back(text);
  };
  const auto all = client->match("type='signal',path_namespace='/lamps'", note);
  const auto narrow = client->match("type='signal',member='Flicker'", note);
  auto dropped = client->match("type='signal',member='Flicker'", note);
  dropped.reset();
  EXPECT_EQ(call(kLamp, "Double", "i", 1), "2");  // the rules are in force
  kv::emitPropertiesChanged(*service, kLampPath, kLamp, {"Level"});
  kv::emitInterfacesAdded(*service, kLampPath, {kLamp});
  kv::emitInterfacesRemoved(*service, kLampPath, {kLamp});
  kv::emitSignal(*service, kLampPath, kLamp, "Flicker",
                 [](sd_bus_message* signal) { sd_bus_message_append(signal, "i", 3); });
  EXPECT_TRUE(waitFor([&] { return seen.size() >= 5; }));
  EXPECT_THAT(seen, ElementsAre("PropertiesChanged /lamps/one", "InterfacesAdded /lamps",
                                "InterfacesRemoved /lamps", "Flicker /lamps/one 3",
                                "Flicker /lamps/one 3"));
}

TEST_F(BusTest, MatchThatDropsItselfIsNotCalledAgain) {
  int calls = 0;
  kv::BusSlot slot;
  slot = client->match("type='signal',member='Flicker'",
                       [&, token = std::make_shared<int>(1)](const BusMessage&) {
                         slot.reset();
                         calls += *token;
                       });
  startService();
  EXPECT_EQ(call(kLamp, "Double", "i", 1), "2");
  kv::emitSignal(*service, kLampPath, kLamp, "Flicker");
  kv::emitSignal(*service, kLampPath, kLamp, "Flicker");
  EXPECT_EQ(call(kLamp, "Double", "i", 1), "2");
  EXPECT_EQ(calls, 1);
}

TEST_F(BusTest, RuleThatTheBusRefusesIsReported) {
  Texts refused;
  const auto good = client->match(
      "type='signal',member='Flicker'", [](const BusMessage&) {},
      [&](const kv::BusError& error) { refused.push_back(error.name); });
  const auto bad = client->match(
      "type='signal',path='/a',path_namespace='/a'", [](const BusMessage&) {},
      [&](const kv::BusError& error) { refused.push_back(error.name); });
  startService();
  EXPECT_EQ(call(kLamp, "Double", "i", 1), "2");
  EXPECT_THAT(refused, ElementsAre("org.freedesktop.DBus.Error.MatchRuleInvalid"));
}

TEST_F(BusTest, CallEndsInTimeOrWithItsSlot) {
  startService();
  EXPECT_EQ(call(kLamp, "Double", "i", 1), "2");
  queue->runFor(5ms);  // nothing else makes the client look at its limits
  Texts answers;
  const auto note = [&](const char* name) {
    return [&answers, name](const BusMessage&, const BusFault& error) {
      answers.push_back(std::string(name) + ' ' + (error ? error->name : "answered"));
    };
  };
  const auto ignore = [&] { return client->methodCall(kName, kLampPath, kLamp, "Ignore"); };
  const auto begun = queue->now();
  const auto late = client->call(ignore(), 60ms, note("late"));
  const auto early = client->call(ignore(), 30ms, note("early"));  // though it was sent later
  auto dropped = client->call(ignore(), 10ms, note("dropped"));
  dropped.reset();
  EXPECT_THAT(answers, IsEmpty());
  EXPECT_TRUE(waitFor([&] { return answers.size() == 2; }));
  EXPECT_GE(queue->now() - begun, 60ms);
  EXPECT_LT(queue->now() - begun, 5s);
  EXPECT_THAT(answers, ElementsAre("early org.freedesktop.DBus.Error.NoReply",
                                   "late org.freedesktop.DBus.Error.NoReply"));
}

TEST_F(BusTest, AnswersMayDropTheirSlotAndTheConnection) {
  startService();
  bool answered = false;
  kv::BusSlot slot;
  slot = client->call(client->methodCall(kName, kLampPath, kLamp, "Refuse"), 5s,
                      [&](const BusMessage&, const BusFault& error) {
                        EXPECT_EQ(error ? error->text : "", "100 % no");
                        slot.reset();
                        client.reset();
                        answered = true;
                      });
  EXPECT_TRUE(waitFor([&] { return answered; }));
  EXPECT_THAT(lost, IsEmpty());
}

TEST_F(BusTest, LossOfTheBusEndsWhatIsPendingAndIsReportedOnce) {
  startService();
  const auto pending = client->call(client->methodCall(kName, kLampPath, kLamp, "Ignore"), 1h,
                                    [](const BusMessage&, const BusFault&) { FAIL(); });
  EXPECT_EQ(call(kLamp, "Double", "i", 1), "2");
  EXPECT_NE(client->uniqueName(), service->uniqueName());
  bus.stop();
  EXPECT_TRUE(waitFor([&] { return !lost.empty(); }));

  EXPECT_FALSE(client->methodCall(kName, kLampPath, kLamp, "Double"));
  std::string outcome;
  const auto vain = client->call({}, 1h, [&](const BusMessage& reply, const BusFault& error) {
    EXPECT_FALSE(reply);
    outcome = error ? error->name : "answered";
  });
  auto forgotten = client->call({}, 1h, [](const BusMessage&, const BusFault&) { FAIL(); });
  forgotten.reset();
  client->send({});
  const auto never = client->match("type='signal'", [](const BusMessage&) { FAIL(); });
  EXPECT_EQ(outcome, "");  // never from inside the call
  EXPECT_TRUE(waitFor([&] { return !outcome.empty(); }));
  EXPECT_EQ(outcome, kv::dbus::kDisconnected);
  queue->runFor(5ms);
  EXPECT_EQ(lost.size(), 1U);
}

TEST_F(BusTest, NoAddressMeansTheSystemBus) {
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), /*overwrite=*/1);
  const auto system = BusConnection::open(queue, "", {});
  unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  EXPECT_EQ(system->uniqueName(), "");  // nobody waits for it
  EXPECT_TRUE(waitFor([&] { return !system->uniqueName().empty(); }));
}

TEST_F(BusTest, WhatDoesNotFitIntoTheSocketFollows) {
  startService();
  EXPECT_EQ(call(kLamp, "Double", "i", 1), "2");
  queue->runFor(5ms);
  constexpr int kMany = 2'000;
  for (int i = 0; i < kMany; ++i) {
    BusMessage note = client->methodCall(kName, kLampPath, kLamp, "Note");
    sd_bus_message_append(note.get(), "s", std::string(1'000, 'x').c_str());
    client->send(note);
  }
  EXPECT_LT(noted, kMany);
  EXPECT_TRUE(waitFor([&] { return noted == kMany; }));
  EXPECT_FALSE(replyExpected);
}

TEST_F(BusTest, AddressWithoutABusIsReportedLater) {
  std::vector<int> errors;
  const auto none = BusConnection::open(queue, "unix:path=/nonexistent/bus",
                                        [&](int error) { errors.push_back(error); });
  const auto nonsense =
      BusConnection::open(queue, "nonsense", [&](int error) { errors.push_back(error); });
  EXPECT_THAT(errors, IsEmpty());
  EXPECT_EQ(none->uniqueName(), "");
  EXPECT_TRUE(waitFor([&] { return errors.size() == 2; }));
  EXPECT_THAT(errors, ElementsAre(ENOENT, testing::Gt(0)));
}

TEST_F(BusTest, CallStartsNoService) {
  std::string outcome;
  const auto slot = client->call(client->methodCall(kIdleService, "/", kLamp, "Double"), 5s,
                                 [&](const BusMessage&, const BusFault& error) {
                                   outcome = error ? error->name : "answered";
                                 });
  EXPECT_TRUE(waitFor([&] { return !outcome.empty(); }));
  EXPECT_THAT(outcome, testing::AnyOf(kv::dbus::kServiceUnknown, kv::dbus::kNameHasNoOwner));
}

}  // namespace
}  // namespace kvtest

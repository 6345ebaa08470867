// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// What the bus and the daemon are asked.
#include "platform/linux/bluez/diagnosis.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/linux/bluez/errors.h"
#include "platform/linux/bus/names.h"
#include "platform/linux/settings.h"

std::shared_ptr<KVLinuxDiagnosis> KVLinuxDiagnosis::startWith(
    const std::shared_ptr<KVLinuxEventQueue>& queue, const KVLinuxSettings& settings, Done done) {
  const auto diagnosis =
      std::make_shared<kv::Diagnosis>(queue, settings.data().options.bluez, std::move(done));
  queue->post([weak = std::weak_ptr(diagnosis)] {
    if (const auto alive = weak.lock()) alive->begin();
  });
  return diagnosis;
}

namespace kv {
namespace {

constexpr const char* kHowToBePermitted =
    "run as root or as a user of the group bluetooth; in a container, see that its profile allows "
    "D-Bus";

}  // namespace

Diagnosis::Diagnosis(WeakLinuxQueue queue, KVBlueZOptions options, Done done,
                     DiagnosisSources sources)
    : queue_(std::move(queue)),
      options_(std::move(options)),
      done_(std::move(done)),
      sources_(std::move(sources)),
      tree_(*this) {}

void Diagnosis::begin() {
  bus_ = BusConnection::open(queue_, options_.busAddress, [this](int error) { busLost(error); });
  BusMessage question =
      bus_->methodCall(dbus::kService, dbus::kPath, dbus::kBus, dbus::kGetNameOwner);
  if (question) sd_bus_message_append(question.get(), "s", bluez::kService);
  call_ = bus_->call(std::move(question), sources_.patience,
                     [this](const BusMessage&, const BusFault& error) { ownerKnown(error); });
}

void Diagnosis::busLost(int error) {
  if (error == EACCES || error == EPERM) {
    unusable("permission", "the message bus refuses this process", kHowToBePermitted);
  } else {
    unusable("bus", std::string("there is no message bus: ") + std::strerror(error),
             "start D-Bus (package dbus); in a container, share the host's /run/dbus with it");
  }
  finish();
}

void Diagnosis::ownerKnown(const BusFault& error) {
  const Fault fault = classify(error);
  if (fault == Fault::NoBus) {
    return;  // `busLost` is about to be called
  }
  if (fault == Fault::NoReply) {
    unusable("bus", "the message bus does not answer", "restart D-Bus, or the machine");
  } else if (fault == Fault::AccessDenied) {
    unusable("permission", "the message bus refuses this process", kHowToBePermitted);
  } else if (error) {
    ok("bus", "the message bus answers");
    unusable("service", "bluetoothd is not running",
             "start it with \"systemctl start bluetooth\"; if there is no such service, install "
             "the package bluez");
  } else {
    ok("bus", "the message bus answers");
    BusMessage question = bus_->methodCall(bluez::kService, bluez::kManagerPath,
                                           dbus::kObjectManager, dbus::kGetManagedObjects);
    call_ = bus_->call(
        std::move(question), sources_.patience,
        [this](const BusMessage& reply, const BusFault& refusal) { listed(reply, refusal); });
    return;
  }
  finish();
}

void Diagnosis::listed(const BusMessage& reply, const BusFault& error) {
  const Fault fault = classify(error);
  if (fault == Fault::NoBus) return;
  if (!error) {
    tree_.load(reply.get());
    examineObjects();
  } else if (fault == Fault::AccessDenied) {
    ok("service", "bluetoothd is running");
    unusable("permission", "the bus does not let this user talk to bluetoothd", kHowToBePermitted);
  } else {
    unusable("service", "bluetoothd is running but does not answer: " + error->text,
             "restart it with \"systemctl restart bluetooth\"");
  }
  finish();
}

void Diagnosis::finish() {
  const auto done = std::exchange(done_, nullptr);
  if (!done) {
    return;  // the bus went away after all was said
  }
  const auto keep = shared_from_this();
  bus_.reset();
  done(findings_);
}

void Diagnosis::ok(const char* topic, std::string seen) {
  findings_.push_back({topic, KVVerdict::Ok, std::move(seen), ""});
}

void Diagnosis::hint(const char* topic, std::string seen, std::string advice) {
  findings_.push_back({topic, KVVerdict::Hint, std::move(seen), std::move(advice)});
}

void Diagnosis::unusable(const char* topic, std::string seen, std::string advice) {
  findings_.push_back({topic, KVVerdict::Unusable, std::move(seen), std::move(advice)});
}

}  // namespace kv

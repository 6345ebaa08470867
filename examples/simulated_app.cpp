// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Tests an application without a radio: in virtual time, rings a tag that loses the link twice on
// the way.
#include <KVFobLink/KVFobLink.h>
#include <KVFobSimulator/KVFobSimulator.h>

#include <iostream>

int main() {
  using namespace std::chrono_literals;

  kvsim::SimulatedRadio radio;
  const auto tag = radio.addTag({.address = "a1b2c3d4e5f6", .password = "secret"});
  tag->behaviour().steps[kvsim::Procedure::ServiceDiscovery] = {.fault = kvsim::StepFault::Drop,
                                                                .times = 2};
  KVPlatform::setCurrent(radio.platform());

  // The application: a tag that was bound before, which connects when it advertises.
  const auto manager = KVTrackerManager::sharedInstance();
  manager->setPassword("secret");
  const auto tracker = manager->addTracker("a1b2c3d4e5f6");
  tracker->didConnectionChange([&](std::uint64_t connection) {
    if (connection == KVConnectionConnected) tracker->switchBellStatus(/*status=*/true, nullptr);
  });
  manager->startScan([](const KVTrackers&) {});

  // The test: ten seconds pass in an instant.
  radio.clock().runFor(10s);
  std::cout << "connected " << tag->state().connects << " times, the bell is "
            << (tag->state().bellRinging ? "ringing" : "silent") << '\n';
  manager->removeAllTrackers();
  return tag->state().bellRinging && tag->state().connects == 3 ? 0 : 1;
}

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The fixture of the tracker's tests: one tracker with an address, a password and a peripheral.
#ifndef TESTS_SUPPORT_CORE_TRACKER_TEST_H
#define TESTS_SUPPORT_CORE_TRACKER_TEST_H

#include <limits>
#include <memory>
#include <string>

#include "tests/support/core_test.h"

namespace kvtest {

class TrackerTest : public CoreTest {
 protected:
  TrackerTest() {
    tracker->updateData(KVTrackerDataMac, std::string(kMac));
    tracker->setPassword("secret");
    tracker->setPeripheral(p);
    installCallbacks();
  }

  /// Every callback, with one name each.
  void installCallbacks() {
    tracker->didConnectionChange([this](std::uint64_t connection) {
      EXPECT_EQ(tracker->connection(), connection);
      journal->add("connection " + std::to_string(static_cast<std::int64_t>(connection)) +
                   " state " + std::to_string(tracker->state()));
    });
    tracker->didValueUpdate([this] { journal->add("updated"); });
    tracker->didReceive(
        [this](std::int64_t event) { journal->add("received " + std::to_string(event)); });
    tracker->setCommandSendBlock(result("command sent"));
    tracker->setBindingBlock(result("bind"));
    tracker->setRingBlock(result("ring"));
    tracker->setWritelossAlertBlock(result("alert"));
    tracker->setWritelossDelayBlock(result("delay"));
    tracker->setWritelossDistanceBlock(result("distance"));
    tracker->setPasswordRemoveBlock(result("remove"));
  }

  void removeCallbacks() {
    tracker->didConnectionChange(nullptr);
    tracker->didValueUpdate(nullptr);
    tracker->didReceive(nullptr);
    tracker->setCommandSendBlock(nullptr);
    tracker->setBindingBlock(nullptr);
    tracker->setRingBlock(nullptr);
    tracker->setWritelossAlertBlock(nullptr);
    tracker->setWritelossDelayBlock(nullptr);
    tracker->setWritelossDistanceBlock(nullptr);
    tracker->setPasswordRemoveBlock(nullptr);
  }

  void open() { session = reachBindRequest(*tracker, *p); }

  /// Delivers an answer of the tag.
  void answer(std::string_view frame) {
    p->reportValue(tracker->korvaChar(), sealed(session, frame));
  }

  const std::shared_ptr<FakePeripheral> p = peripheral("P");
  std::shared_ptr<KVTracker> tracker = std::make_shared<KVTracker>();
  KVData session;
};

}  // namespace kvtest

#endif  // TESTS_SUPPORT_CORE_TRACKER_TEST_H

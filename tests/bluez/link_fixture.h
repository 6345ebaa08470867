// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What the tests of links and of attempts at them share.
#ifndef TESTS_BLUEZ_LINK_FIXTURE_H
#define TESTS_BLUEZ_LINK_FIXTURE_H

#include <memory>
#include <optional>
#include <string>

#include "tests/bluez/bluez_fixture.h"

namespace kvtest {

class LinkTest : public BlueZTest {
 protected:
  std::shared_ptr<KVPeripheral> connectTo(const std::string& address = kTag) {
    auto tag = find(address);
    central->connectPeripheral(tag);
    return tag;
  }
  /// Lets the calls of Connect wait for the Disconnect that cancels them.
  void leaveConnectPending() {
    bluez->on("Connect", [this](const kv::BusCall& call) { pending = call; });
    bluez->on("Disconnect", [this](const kv::BusCall& call) {
      if (pending) pending->fail(kFailed, "br-connection-canceled");
      pending.reset();
      bluez->answer(call);
    });
  }
  /// Makes the next `count` calls of Connect fail.
  void failConnect(int count, const std::string& name, const std::string& text) {
    bluez->on("Connect", [this, count, name, text](const kv::BusCall& call) mutable {
      if (count-- > 0) {
        call.fail(name, text);
      } else {
        bluez->answer(call);
      }
    });
  }

  std::optional<kv::BusCall> pending;
};

}  // namespace kvtest

#endif  // TESTS_BLUEZ_LINK_FIXTURE_H

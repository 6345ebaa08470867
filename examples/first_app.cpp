// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Binds the first tag that a scan finds, and rings it.
#include <KVFobLink/KVFobLink.h>

#include <iostream>

int main() {
  const auto queue = KVPlatform::current().eventQueue;
  const auto manager = KVTrackerManager::sharedInstance();
  int status = 1;
  const auto end = [&](std::string_view outcome, int result = 1) {
    (result == 0 ? std::cout : std::cerr) << outcome << '\n';
    status = result;
    queue->stop();
  };

  // Unknown and Resetting pass, and didChangeBluetooth reports changes only: so look in a while.
  queue->postAfter(std::chrono::seconds(10), [&] {
    if (manager->bleState() != KVCentralStatePoweredOn) end("no Bluetooth; ask: kvfob doctor");
  });
  queue->postAfter(std::chrono::minutes(1), [&] { end("no tag, or no answer"); });

  manager->setPassword("secret");  // 1 to 13 bytes; the tag keeps the first one that binds it
  manager->startScan([&](const KVTrackers& trackers) {
    manager->stopScan();  // a scan that starts anew forgets the tag that is being bound
    const auto& tag = trackers[0];
    std::cout << "binding " << *tag->mac() << ", " << tag->rssi() << " dBm\n";

    // Weakly: the tag keeps its completions. Once bound, the manager keeps the tag.
    manager->bindingVerify(tag, [&, weak = std::weak_ptr(tag)](bool bound, const auto& error) {
      if (!bound) return end(error->domain);
      weak.lock()->switchBellStatus(/*status=*/true, [&](bool ringing, const auto& refusal) {
        if (ringing) return end("ringing", 0);
        end(refusal->domain);
      });
    });
  });

  queue->run();  // or watch queue->fd() in a loop of your own and call queue->dispatch()
  return status;
}

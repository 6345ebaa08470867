// Binds the first tag that is heard, and rings it.
#include <KVFobLink/KVFobLink.h>

#include <iostream>

int main() {
  const auto queue = KVPlatform::current().eventQueue;
  const auto manager = KVTrackerManager::sharedInstance();
  int status = 1;

  manager->setPassword("secret");  // 1 to 13 bytes; the tag keeps the first one that binds it
  manager->didChangeBluetooth([](std::int64_t state) {
    if (state != KVCentralStatePoweredOn) std::cerr << "Bluetooth is not on: " << state << '\n';
  });

  manager->startScan([&](const KVTrackers& trackers) {
    const auto& tag = trackers[0];
    manager->stopScan();
    std::cout << "binding " << *tag->mac() << ", " << tag->rssi() << " dBm\n";

    manager->bindingVerify(tag, [&, tag](bool bound, const std::optional<KVError>& error) {
      if (!bound) {
        std::cerr << error->domain << '\n';
        return queue->stop();
      }
      tag->switchBellStatus(/*status=*/true,
                            [&](bool ringing, const std::optional<KVError>& refusal) {
                              std::cout << (ringing ? "ringing" : refusal->domain) << '\n';
                              status = ringing ? 0 : 1;
                              queue->stop();
                            });
    });
  });

  queue->run();  // or watch queue->fd() in a loop of your own and call queue->dispatch()
  return status;
}

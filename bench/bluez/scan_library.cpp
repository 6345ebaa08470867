// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// scan_library BUS: scans with the library until its input ends, then says how many advertisements
// it was told of.
#include <KVFobLink/KVFobLink.h>
#include <KVFobLink/KVLinuxPlatform.h>
#include <poll.h>

#include <iostream>
#include <memory>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  KVLinuxOptions options;
  options.bluez.busAddress = argv[1];
  options.log = [](std::string_view) {};
  KVPlatform::setCurrent(KVLinuxPlatform::make(options));
  const auto queue = std::dynamic_pointer_cast<KVLinuxEventQueue>(KVPlatform::current().eventQueue);
  const auto manager = KVTrackerManager::sharedInstance();
  int heard = 0;
  manager->startScan([&](const KVTrackers&) { ++heard; });
  const auto ended = queue->watch(0, POLLIN, [&](short) { queue->stop(); });
  queue->run();
  std::cout << heard << std::endl;
}

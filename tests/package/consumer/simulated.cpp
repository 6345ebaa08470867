// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <KVFobLink/KVFobLink.h>
#include <KVFobSimulator/SimulatedRadio.h>

// Hears a simulated tag through the installed libraries.
int main() {
  kvsim::SimulatedRadio radio;
  radio.addTag({});
  KVPlatform::setCurrent(radio.platform());
  bool heard = false;
  KVTrackerManager::sharedInstance()->startScan([&](const KVTrackers&) { heard = true; });
  KVPlatform::current().eventQueue->runFor(std::chrono::seconds(5));
  return heard ? 0 : 1;
}

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// advertiser BUS TAGS: a daemon on that bus with so many tags. It says "ready", "scanning" for each
// scan that begins, and, for each number that it reads, "sent" once it has signalled as many
// advertisements, one each millisecond, by turns.
#include <poll.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "tests/bluez/fake_bluez.h"

namespace {

using namespace std::chrono_literals;
using kvtest::FakeBlueZ;

struct Tag {
  std::string address;
  KVData frame;
};

Tag tagNumber(unsigned number) {
  const auto high = static_cast<std::uint8_t>(number >> 8U);
  const auto low = static_cast<std::uint8_t>(number);
  char address[18];
  std::snprintf(address, sizeof address, "A0:00:00:00:%02X:%02X", high, low);
  return {address, {0xA1, 0x0B, 0x64, low, high, 0, 0, 0, 0xA0, 0xF4, 0x03}};
}

// With what the real daemon says of any device.
void addTag(FakeBlueZ& bluez, const Tag& tag) {
  bluez.add(FakeBlueZ::devicePath(tag.address), kvtest::kDevice,
            {{"Address", tag.address},
             {"AddressType", std::string("public")},
             {"Adapter", std::string(kvtest::kHci)},
             {"Alias", tag.address},
             {"Connected", false},
             {"ServicesResolved", false},
             {"Paired", false},
             {"Bonded", false},
             {"Trusted", false},
             {"Blocked", false},
             {"LegacyPairing", false},
             {"UUIDs", std::vector<std::string>()}});
}

void advertise(KVEventQueue& queue, FakeBlueZ& bluez, const std::vector<Tag>& tags, int count) {
  static std::size_t turn = 0;
  auto due = queue.now();
  for (int i = 0; i < count; ++i) {
    const Tag& tag = tags[turn++ % tags.size()];
    bluez.advertise(tag.address, tag.frame, static_cast<std::int16_t>(-60 - i % 2));
    due += 1ms;
    queue.runFor(due - queue.now());
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const auto queue = KVLinuxPlatform::makeEventQueue();
  FakeBlueZ bluez(queue, argv[1]);
  while (!bluez.ready()) queue->runFor(1ms);
  bluez.addAdapter();
  std::vector<Tag> tags;
  for (unsigned number = 0; number < std::stoul(argv[2]); ++number) {
    tags.push_back(tagNumber(number));
    addTag(bluez, tags.back());
  }
  bluez.on("StartDiscovery", [&](const kv::BusCall& call) {
    bluez.answer(call);
    std::cout << "scanning" << std::endl;
  });
  std::cout << "ready" << std::endl;
  // Read outside of the watch, in which the queue cannot run.
  const auto asked = queue->watch(0, POLLIN, [&](short) { queue->stop(); });
  for (;;) {
    queue->run();
    std::string line;
    if (!std::getline(std::cin, line)) return 0;
    advertise(*queue, bluez, tags, std::stoi(line));
    std::cout << "sent" << std::endl;
  }
}

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bluez/live_rssi.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>

#include "tests/bluez/bluez_fixture.h"

namespace kvtest {
namespace {

// A kernel that opens sockets as it is told; the test holds the other end.
class Kernel : public kv::HciSockets {
 public:
  kv::OwnedFd openRaw(std::uint16_t /*index*/) override { return open(raw); }
  kv::OwnedFd openManagement() override { return open(management); }
  std::optional<std::uint16_t> linkHandle(int /*raw*/, const Address& peer) override {
    return peer[5] == 0xAA ? std::optional<std::uint16_t>(0x0042) : std::nullopt;
  }

  bool raw = true;
  bool management = true;
  int error = EAFNOSUPPORT;
  int opened = 0;
  kv::OwnedFd end;

 private:
  kv::OwnedFd open(bool allowed) {
    ++opened;
    std::array<int, 2> ends{};
    errno = error;
    if (!allowed || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
      return kv::OwnedFd();
    }
    end = kv::OwnedFd(ends[1]);
    return kv::OwnedFd(ends[0]);
  }
};

// Read RSSI is the command 0x1405; its answers as HCI event packets (Bluetooth Core Specification,
// Vol 4, Part E, 7.7.14 and 7.7.15).
KVData commandComplete(std::uint8_t status, std::uint8_t handle, std::uint8_t rssi,
                       std::uint8_t command = 0x05) {
  return {0x04, 0x0e, 7, /*commands=*/1, command, 0x14, status, handle, 0, rssi};
}
KVData commandStatus(std::uint8_t status, std::uint8_t command = 0x05) {
  return {0x04, 0x0f, 4, status, /*commands=*/1, command, 0x14};
}

// Get Connection Information is the command 0x0031 of the management interface.
KVData managed(std::uint8_t event, std::uint8_t status, std::uint8_t command = 0x31) {
  return {event, 0, /*adapter=*/1, 0, /*length=*/3, 0, command, 0, status};
}
KVData connectionInformation(std::uint8_t rssi) {
  KVData packet = managed(/*event=*/1, /*status=*/0);
  packet[4] = 13;
  const KVData link{0x01, 0, 0, 0, 0, 0xAA, /*type=*/2, rssi, /*powers=*/4, 5};
  packet.insert(packet.end(), link.begin(), link.end());
  return packet;
}

class LiveRssiTest : public ::testing::Test {
 protected:
  // Asks once, has the kernel answer with these packets, and tells what came of it.
  std::string ask(const std::vector<KVData>& answers, const KVData& expectedCommand,
                  const std::string& adapter = "/org/bluez/hci1", bool randomAddress = true) {
    std::string result = "nothing";
    context.timing.rssi = answers.empty() ? 20ms : 1h;  // what is answered does not wait
    rssi.read(adapter, kTag, randomAddress,
              [&](auto value) { result = value ? std::to_string(*value) : "absent"; });
    KVData command(64);
    const ssize_t size =
        !kernel->end ? 0 : recv(kernel->end.get(), command.data(), 64, MSG_DONTWAIT);
    command.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    EXPECT_EQ(command, expectedCommand);
    for (const KVData& answer : answers) {
      EXPECT_GT(send(kernel->end.get(), answer.data(), answer.size(), MSG_NOSIGNAL), 0);
    }
    EXPECT_EQ(result, "nothing");  // never from inside the request
    for (int round = 0; round < 40 && result == "nothing"; ++round) queue->runFor(1ms);
    return result;
  }

  // Packet type, command (2), length, handle (2).
  const KVData readRssi{0x01, 0x05, 0x14, 2, 0x42, 0x00};
  // Command (2), adapter (2), length (2), address (6), type: random.
  const KVData connectionInfo{0x31, 0, 1, 0, 7, 0, 0x01, 0, 0, 0, 0, 0xAA, 2};
  std::shared_ptr<KVLinuxEventQueue> queue = KVLinuxPlatform::makeEventQueue();
  std::shared_ptr<Log> log = std::make_shared<Log>();
  kv::Context context{.queue = queue, .logSink = log, .options = {}, .timing = {.rssi = 20ms}};
  std::shared_ptr<Kernel> kernel = std::make_shared<Kernel>();
  kv::LiveRssi rssi{context, kernel};
};

TEST_F(LiveRssiTest, RawSocketAnswersForTheLinkThatWasAsked) {
  EXPECT_EQ(ask({commandComplete(0, 0x42, 0xc8)}, readRssi), "-56");
  EXPECT_EQ(ask({commandComplete(0, 0x42, 0xd8)}, readRssi), "-40");
  EXPECT_EQ(ask({commandComplete(0, 0x42, 127)}, readRssi), "absent");
  EXPECT_EQ(ask({commandComplete(2, 0x42, 0xc8)}, readRssi), "absent");
  EXPECT_EQ(ask({commandStatus(0x02)}, readRssi), "absent");  // no such link
  EXPECT_EQ(ask({}, readRssi), "absent");                     // in time
  EXPECT_EQ(kernel->opened, 1);
}

TEST_F(LiveRssiTest, PacketsForOthersAndFragmentsArePassedOver) {
  const KVData good = commandComplete(0, 0x42, 0xc8);
  KVData shortStatus = commandStatus(0x02);
  shortStatus.pop_back();
  KVData data = good;
  data[0] = 0x02;
  KVData otherEvent = good;
  otherEvent[1] = 0x13;
  KVData dataStatus = commandStatus(0x02);
  dataStatus[0] = 0x02;
  const std::vector<KVData> cases = {
      {0x04},
      KVData(good.begin(), good.end() - 1),
      shortStatus,
      data,
      dataStatus,
      otherEvent,
      commandComplete(0, 0x43, 0xd8),
      commandComplete(0, 0x42, 0xd8, /*command=*/0x03),
      commandStatus(0),  // under way
      commandStatus(0x02, /*command=*/0x03),
  };
  for (const KVData& packet : cases) {
    EXPECT_EQ(ask({packet, good}, readRssi), "-56") << testing::PrintToString(packet);
  }
}

TEST_F(LiveRssiTest, ReadingsAreMadeOneAfterTheOther) {
  context.timing.rssi = 1h;
  std::vector<std::string> answers;
  for (const char* const name : {"first", "second"}) {
    rssi.read("/org/bluez/hci1", kTag, /*randomAddress=*/true, [&answers, name](auto value) {
      answers.push_back(std::string(name) + ' ' + std::to_string(value.value_or(0)));
    });
  }
  const auto serve = [&](std::uint8_t level) {
    KVData command(64);
    EXPECT_EQ(recv(kernel->end.get(), command.data(), 64, MSG_DONTWAIT), 6);
    EXPECT_LT(recv(kernel->end.get(), command.data(), 64, MSG_DONTWAIT), 0);  // no other yet
    const KVData answer = commandComplete(0, 0x42, level);
    EXPECT_GT(send(kernel->end.get(), answer.data(), answer.size(), MSG_NOSIGNAL), 0);
    queue->runFor(1ms);
  };
  serve(0xc8);
  serve(0xd8);
  EXPECT_EQ(answers, (std::vector<std::string>{"first -56", "second -40"}));
}

TEST_F(LiveRssiTest, ReadingOfALinkThatIsNotThereFailsAtOnce) {
  context.timing.rssi = 1h;
  bool absent = false;
  rssi.read("/org/bluez/hci1", "BB:00:00:00:00:01", /*randomAddress=*/true,
            [&](auto value) { absent = !value; });
  queue->runFor(1ms);
  EXPECT_TRUE(absent);
}

TEST_F(LiveRssiTest, ChangeOfTheAdapterDropsWhatIsPending) {
  rssi.read("/org/bluez/hci2", kTag, /*randomAddress=*/true, [](auto) { FAIL(); });
  EXPECT_EQ(ask({commandComplete(0, 0x42, 0xc8)}, readRssi), "-56");
}

TEST_F(LiveRssiTest, SocketThatEndsIsOpenedAnew) {
  EXPECT_EQ(ask({commandComplete(0, 0x42, 0xc8)}, readRssi), "-56");
  kernel->end = kv::OwnedFd();  // the adapter has gone
  queue->runFor(1ms);
  EXPECT_EQ(ask({commandComplete(0, 0x42, 0xc8)}, readRssi), "-56");
  EXPECT_EQ(kernel->opened, 2);
}

TEST_F(LiveRssiTest, ManagementInterfaceIsTheSecondChoice) {
  kernel->raw = false;
  const KVData good = connectionInformation(0xb0);
  EXPECT_EQ(ask({good}, connectionInfo), "-80");
  EXPECT_EQ(ask({connectionInformation(127)}, connectionInfo), "absent");
  EXPECT_EQ(ask({managed(2, 0x02)}, connectionInfo), "absent");  // not connected
  EXPECT_EQ(ask({KVData(good.begin(), good.begin() + 17)}, connectionInfo), "-80");
  EXPECT_EQ(ask({KVData(good.begin(), good.begin() + 16)}, connectionInfo), "absent");
  const std::vector<KVData> others = {KVData{1, 0, 1, 0, 3, 0, 0x31, 0}, managed(3, 0),
                                      managed(2, 0x14, /*command=*/0x32), managed(1, 0, 0x32)};
  for (const KVData& packet : others) {
    EXPECT_EQ(ask({packet, good}, connectionInfo), "-80") << testing::PrintToString(packet);
  }
  KVData publicAddress = connectionInfo;
  publicAddress.back() = 1;
  EXPECT_EQ(ask({good}, publicAddress, "/org/bluez/hci1", /*randomAddress=*/false), "-80");
  EXPECT_EQ(kernel->opened, 2);
  KVData other = connectionInfo;
  other[2] = 0x02;
  other[3] = 0x01;
  EXPECT_EQ(ask({good}, other, "/org/bluez/hci258"), "-80");
  EXPECT_EQ(kernel->opened, 4);
  EXPECT_EQ(log->text, "");
}

TEST_F(LiveRssiTest, AdapterThatTheKernelDoesNotShowHasNoSecondChoice) {
  kernel->raw = false;
  kernel->error = ENODEV;
  EXPECT_EQ(ask({}, {}), "nothing");
  EXPECT_EQ(kernel->opened, 1);
  EXPECT_NE(log->text.find("No such device"), std::string::npos);
}

TEST_F(LiveRssiTest, WhatIsForbiddenIsSaidOnceAndNotTriedAgain) {
  kernel->raw = false;
  EXPECT_EQ(ask({managed(2, 0x14)}, connectionInfo), "nothing");
  EXPECT_EQ(ask({}, {}), "nothing");
  EXPECT_EQ(kernel->opened, 2);
  std::uint8_t byte = 0;
  EXPECT_EQ(recv(kernel->end.get(), &byte, 1, MSG_DONTWAIT), 0);  // closed, not left behind
  rssi.reset();                                                   // another adapter
  kernel->management = false;
  log->text.clear();
  EXPECT_EQ(ask({}, {}), "nothing");
  EXPECT_EQ(ask({}, {}), "nothing");
  EXPECT_EQ(log->text,
            "bluez: rssi unavailable, because a Bluetooth socket cannot be opened: Address family "
            "not supported by protocol\n");
}

class RssiOfALinkTest : public BlueZTest {};

TEST_F(RssiOfALinkTest, IsReportedWhileTheLinkIsUp) {
  startDaemon();
  bluez->addAdapter();
  const auto kernel = std::make_shared<Kernel>();
  central = kv::makeBlueZRadio(options, log, timing, kernel)->makeCentral(*recorder, queue);
  ASSERT_TRUE(waitForEvent("state 5"));
  const auto tag = find();
  central->connectPeripheral(tag);
  tag->readRSSI();  // too early
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_EQ(kernel->opened, 0);
  const auto ask = [&](const KVData& answer) {
    takeEvents();
    tag->readRSSI();
    KVData command(64);
    EXPECT_TRUE(waitFor([&] {
      return kernel->end && recv(kernel->end.get(), command.data(), 64, MSG_DONTWAIT) > 0;
    }));
    EXPECT_GT(send(kernel->end.get(), answer.data(), answer.size(), MSG_NOSIGNAL), 0);
  };
  ask(commandComplete(0, 0x42, 0xc8));
  EXPECT_TRUE(waitForEvent("rssi"));
  EXPECT_EQ(recorder->events.back(), "rssi -56");
  ask(commandStatus(0x02));
  EXPECT_TRUE(waitForEvent("rssi"));
  EXPECT_EQ(recorder->events.back(), "rssi absent !1004");

  bluez->powerOff();
  EXPECT_TRUE(waitForEvent("disconnected"));
  bluez->set(kHci, kAdapter, "Powered", true);
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitForEvent("connected"));
  ask(commandComplete(0, 0x42, 0xc8));
  central->cancelPeripheralConnection(tag);  // before the answer has been looked at
  EXPECT_TRUE(waitForEvent("disconnected"));
  EXPECT_EQ(takeEvents().size(), 1U);
  EXPECT_EQ(kernel->opened, 2);  // anew with the power
  tag->readRSSI();
  queue->runFor(2ms);
  EXPECT_EQ(kernel->opened, 2);

  central->connectPeripheral(tag);
  EXPECT_TRUE(waitForEvent("connected"));
  tag->setDelegate({});
  ask(commandComplete(0, 0x42, 0xc8));
  queue->runFor(5ms);
  EXPECT_TRUE(recorder->events.empty());
}

}  // namespace
}  // namespace kvtest

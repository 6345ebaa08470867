#include "platform/linux/bluez/live_rssi.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "tests/bluez/bluez_fixture.h"

namespace kvtest {
namespace {

/// A kernel that opens sockets as it is told; the test holds the other end.
class Kernel : public kv::HciSockets {
 public:
  ~Kernel() override {
    if (end >= 0) close(end);
  }
  int openRaw(std::uint16_t /*index*/) override { return open(raw); }
  int openManagement() override { return open(management); }
  std::optional<std::uint16_t> linkHandle(int /*raw*/, const Address& peer) override {
    return peer[5] == 0xAA ? std::optional<std::uint16_t>(0x0042) : std::nullopt;
  }

  bool raw = true;
  bool management = true;
  int opened = 0;
  int end = -1;

 private:
  int open(bool allowed) {
    ++opened;
    std::array<int, 2> ends{};
    errno = EAFNOSUPPORT;
    if (!allowed || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
      return -1;
    }
    end = ends[1];
    return ends[0];
  }
};

class LiveRssiTest : public ::testing::Test {
 protected:
  /// Asks once, has the kernel answer, and tells what came of it.
  std::string ask(const KVData& answer, const KVData& expectedCommand) {
    std::string result = "nothing";
    rssi.read("/org/bluez/hci1", kTag, /*randomAddress=*/true,
              [&](auto value) { result = value ? std::to_string(*value) : "absent"; });
    KVData command(64);
    const ssize_t size = kernel->end < 0 ? 0 : recv(kernel->end, command.data(), 64, MSG_DONTWAIT);
    command.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    EXPECT_EQ(command, expectedCommand);
    if (!command.empty() && !answer.empty()) {
      EXPECT_GT(send(kernel->end, answer.data(), answer.size(), MSG_NOSIGNAL), 0);
    }
    queue->runFor(context.timing.rssi + 10ms);
    return result;
  }

  const KVData readRssi{0x01, 0x05, 0x14, 0x02, 0x42, 0x00};
  const KVData connectionInfo{0x31, 0, 1, 0, 7, 0, 0x01, 0, 0, 0, 0, 0xAA, 2};
  std::shared_ptr<KVLinuxEventQueue> queue = KVLinuxPlatform::makeEventQueue();
  std::shared_ptr<Log> log = std::make_shared<Log>();
  kv::Context context{.queue = queue, .logSink = log, .options = {}, .timing = {.rssi = 20ms}};
  std::shared_ptr<Kernel> kernel = std::make_shared<Kernel>();
  kv::LiveRssi rssi{context, kernel};
};

TEST_F(LiveRssiTest, RawSocketAnswersForTheLinkThatWasAsked) {
  EXPECT_EQ(ask({0x04, 0x0e, 7, 1, 0x05, 0x14, 0, 0x42, 0, 0xc8}, readRssi), "-56");
  EXPECT_EQ(ask({0x04, 0x0e, 7, 1, 0x05, 0x14, 0, 0x43, 0, 0xc8}, readRssi), "absent");  // another
  EXPECT_EQ(ask({0x04, 0x0e, 7, 1, 0x05, 0x14, 0, 0x42, 0, 127}, readRssi), "absent");
  EXPECT_EQ(ask({0x04, 0x0f, 4, 0x02, 1, 0x05, 0x14}, readRssi), "absent");  // no such link
  EXPECT_EQ(ask({}, readRssi), "absent");                                    // in time
  EXPECT_EQ(kernel->opened, 1);
}

TEST_F(LiveRssiTest, ManagementInterfaceIsTheSecondChoice) {
  kernel->raw = false;
  const KVData answer{0x01, 0, 1, 0, 12, 0, 0x31, 0, 0, 0, 0, 0, 0, 0, 0xAA, 2, 0xb0, 0, 0};
  EXPECT_EQ(ask(answer, connectionInfo), "-80");
  EXPECT_EQ(ask({0x02, 0, 1, 0, 3, 0, 0x31, 0, 0x02}, connectionInfo), "absent");  // not linked
  EXPECT_EQ(log->text, "");
}

TEST_F(LiveRssiTest, WhatIsForbiddenIsSaidOnceAndNotTriedAgain) {
  kernel->raw = false;
  EXPECT_EQ(ask({0x02, 0, 1, 0, 3, 0, 0x31, 0, 0x14}, connectionInfo), "nothing");
  EXPECT_EQ(ask({}, {}), "nothing");
  EXPECT_EQ(kernel->opened, 2);
  rssi.reset();  // another adapter
  kernel->management = false;
  log->text.clear();
  EXPECT_EQ(ask({}, {}), "nothing");
  EXPECT_EQ(ask({}, {}), "nothing");
  EXPECT_EQ(log->text,
            "bluez: rssi unavailable, because a Bluetooth socket cannot be opened: Address family "
            "not supported by protocol\n");
}

}  // namespace
}  // namespace kvtest

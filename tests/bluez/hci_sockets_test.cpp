// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The kernel's interface, to the byte: this file's system calls take the place of the C library's.
#include "platform/linux/bluez/hci_sockets.h"

#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <string>
#include <vector>

#include "KVFobLink/KVTypes.h"

namespace {

// What a kernel with Bluetooth would be asked, in place of one that has none.
struct Kernel {
  std::vector<std::string> calls;
  int fail = -1;  // The number of the call that is refused.

  bool refuses() { return static_cast<int>(calls.size()) == fail + 1; }
};
Kernel* g_kernel = nullptr;

std::string hex(const void* data, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const std::uint8_t byte = static_cast<const std::uint8_t*>(data)[i];
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

int note(std::string call) {
  g_kernel->calls.push_back(std::move(call));
  if (!g_kernel->refuses()) return 0;
  errno = EACCES;
  return -1;
}

}  // namespace

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  const auto open = [](int of, int as, int by) {
    return static_cast<int>(syscall(SYS_socket, of, as, by));
  };
  if (g_kernel == nullptr || domain != AF_BLUETOOTH) return open(domain, type, protocol);
  const int flags = SOCK_CLOEXEC | SOCK_NONBLOCK;
  const bool raw = type == (SOCK_RAW | flags);
  const int result = note((raw ? "raw socket " : "socket ") + std::to_string(protocol));
  return result < 0 ? result : open(AF_UNIX, SOCK_DGRAM | flags, 0);
}

int bind(int fd, const sockaddr* address, socklen_t size) noexcept {
  if (g_kernel == nullptr) return static_cast<int>(syscall(SYS_bind, fd, address, size));
  return note("bind " + hex(address, size));
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept {
  if (g_kernel == nullptr) {
    return static_cast<int>(syscall(SYS_setsockopt, fd, level, name, value, size));
  }
  return note("option " + std::to_string(level) + ' ' + std::to_string(name) + ' ' +
              hex(value, size));
}

int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  if (g_kernel == nullptr) return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
  const int result = note("ioctl " + std::to_string(request & 0xffff) + ' ' + hex(argument, 10));
  static_cast<std::uint8_t*>(argument)[8] = 0x42;
  return result;
}
}

namespace kvtest {
namespace {

using ::testing::ElementsAre;

class HciSocketsTest : public testing::Test {
 protected:
  HciSocketsTest() { g_kernel = &kernel; }
  ~HciSocketsTest() override { g_kernel = nullptr; }

  Kernel kernel;
  kv::HciSockets sockets;
};

TEST_F(HciSocketsTest, RawSocketHearsTheAnswersToReadRssiAlone) {
  EXPECT_TRUE(sockets.openRaw(3));
  EXPECT_THAT(kernel.calls, ElementsAre("raw socket 1",       // the protocol HCI
                                        "bind 1f0003000000",  // Bluetooth, hci3, the channel RAW
                                        "option 0 2 "         // HCI_FILTER
                                        "10000000"            // event packets
                                        "00c0000000000000"    // Command Complete and Status
                                        "05140000"));         // of Read RSSI
}

TEST_F(HciSocketsTest, ManagementSocketIsForAllAdapters) {
  EXPECT_TRUE(sockets.openManagement());
  EXPECT_THAT(kernel.calls, ElementsAre("raw socket 1", "bind 1f00ffff0300"));  // CONTROL
}

TEST_F(HciSocketsTest, RefusalAtAnyStepLeavesItsReason) {
  for (kernel.fail = 0; kernel.fail < 3; ++kernel.fail) {
    kernel.calls.clear();
    errno = 0;
    EXPECT_FALSE(sockets.openRaw(0));
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(static_cast<int>(kernel.calls.size()), kernel.fail + 1);
  }
}

TEST_F(HciSocketsTest, HandleIsThatOfTheLowEnergyLink) {
  const kv::HciSockets::Address peer{0x01, 0, 0, 0, 0, 0xAA};
  EXPECT_EQ(sockets.linkHandle(-1, peer), 0x0042);
  EXPECT_THAT(kernel.calls, ElementsAre("ioctl 18645 "  // 'H' 213: HCIGETCONNINFO
                                        "0100000000aa"  // the peer
                                        "80"            // LE_LINK
                                        "00"            // padding
                                        "0000"));       // the handle, for the kernel to fill in
  kernel.calls.clear();
  kernel.fail = 0;
  EXPECT_EQ(sockets.linkHandle(-1, peer), std::nullopt);
}

TEST_F(HciSocketsTest, AdapterIsCountedAsItsPathIs) {
  EXPECT_EQ(kv::adapterIndex("/org/bluez/hci12"), 12);
  EXPECT_EQ(kv::adapterIndex("/org/bluez/hci0"), 0);
  EXPECT_EQ(kv::adapterIndex("/org/bluez"), 0);
  EXPECT_EQ(kv::adapterIndex("/hci7/other/hci3"), 3);
}

}  // namespace
}  // namespace kvtest

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "tests/bluez/private_bus.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "platform/linux/owned_fd.h"

extern char** environ;

namespace kvtest {

PrivateBus::PrivateBus() {
  std::string name = (std::filesystem::temp_directory_path() / "kvbus-XXXXXX").string();
  directory_ = mkdtemp(name.data());
  address_ = "unix:path=" + directory_ + "/bus";
  std::ofstream(directory_ + "/bus.conf")
      << "<busconfig><type>session</type><listen>" << address_
      << "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow user=\"*\"/>"
         "<allow own=\"*\"/><allow send_destination=\"*\"/><allow send_type=\"*\"/>"
         "<allow receive_type=\"*\"/></policy><servicedir>"
      << directory_ << "</servicedir></busconfig>\n";
  std::ofstream(directory_ + "/idle.service")
      << "[D-BUS Service]\nName=" << kIdleService << "\nExec=/bin/false\n";
  start();
}

PrivateBus::~PrivateBus() {
  stop();
  std::filesystem::remove_all(directory_);
}

void PrivateBus::start() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return;
  const kv::OwnedFd ready(ends[0]);
  kv::OwnedFd writer(ends[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, writer.get(), 3);
  // It complains about file limits that nobody may raise here.
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  const std::string config = "--config-file=" + directory_ + "/bus.conf";
  std::array<char*, 6> arguments{
      const_cast<char*>("dbus-daemon"),       const_cast<char*>(config.c_str()),
      const_cast<char*>("--nofork"),          const_cast<char*>("--nopidfile"),
      const_cast<char*>("--print-address=3"), nullptr};
  const int result =
      posix_spawnp(&daemon_, "dbus-daemon", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  writer = kv::OwnedFd();
  pollfd answer{ready.get(), POLLIN, 0};
  std::array<char, 256> line{};
  if (result != 0 || poll(&answer, 1, 10'000) != 1 ||
      read(ready.get(), line.data(), line.size()) <= 0) {
    address_.clear();
  }
}

void PrivateBus::stop() {
  if (daemon_ > 0) {
    kill(daemon_, SIGKILL);
    waitpid(daemon_, nullptr, 0);
    daemon_ = -1;
    std::filesystem::remove(directory_ + "/bus");
  }
}

RejectingBus::RejectingBus(KVLinuxEventQueue& queue)
    : path_((std::filesystem::temp_directory_path() / ("kvbus-no-" + std::to_string(getpid())))),
      address_("unix:path=" + path_),
      listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  path_.copy(name.sun_path, sizeof name.sun_path - 1);
  if (bind(listener_.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0 ||
      listen(listener_.get(), 4) != 0) {
    address_.clear();
    return;
  }
  watch_ = queue.watch(listener_.get(), POLLIN, [this](short) {
    clients_.emplace_back(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    // To each command of the client's opening: AUTH, NEGOTIATE_UNIX_FD, BEGIN.
    constexpr std::string_view kRejected = "REJECTED EXTERNAL\r\nERROR\r\nERROR\r\n";
    send(clients_.back().get(), kRejected.data(), kRejected.size(), MSG_NOSIGNAL);
  });
}

RejectingBus::~RejectingBus() { std::filesystem::remove(path_); }

}  // namespace kvtest

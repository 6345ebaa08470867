#include "tests/bluez/private_bus.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>

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
         "<allow receive_type=\"*\"/></policy></busconfig>\n";
  start();
}

PrivateBus::~PrivateBus() {
  stop();
  std::filesystem::remove_all(directory_);
}

void PrivateBus::start() {
  std::array<int, 2> ready{};
  if (pipe2(ready.data(), O_CLOEXEC) != 0) {
    return;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ready[1], 3);
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
  close(ready[1]);
  pollfd answer{ready[0], POLLIN, 0};
  std::array<char, 256> line{};
  if (result != 0 || poll(&answer, 1, 10'000) != 1 ||
      read(ready[0], line.data(), line.size()) <= 0) {
    address_.clear();
  }
  close(ready[0]);
}

void PrivateBus::stop() {
  if (daemon_ > 0) {
    kill(daemon_, SIGKILL);
    waitpid(daemon_, nullptr, 0);
    daemon_ = -1;
    std::filesystem::remove(directory_ + "/bus");
  }
}

}  // namespace kvtest

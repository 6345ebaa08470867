// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// scan_bare BUS: the least that a client of the daemon can do: the same match rules, and each
// message read from end to end, until its input ends. Then it says how many signals it read.
#include <poll.h>
#include <systemd/sd-bus.h>

#include <array>
#include <cstdint>
#include <iostream>
#include <string_view>

namespace {

constexpr std::array kRules{
    "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
    "member='NameOwnerChanged',arg0='org.bluez'",
    "type='signal',sender='org.bluez',interface='org.freedesktop.DBus.ObjectManager',"
    "member='InterfacesAdded',path='/'",
    "type='signal',sender='org.bluez',interface='org.freedesktop.DBus.ObjectManager',"
    "member='InterfacesRemoved',path='/'",
};
constexpr const char* kChanges =
    "type='signal',sender='org.bluez',interface='org.freedesktop.DBus.Properties',"
    "member='PropertiesChanged',path_namespace='/org/bluez'";

// Reads all that is left at this level.
bool walk(sd_bus_message* message) {
  char type = 0;
  const char* contents = nullptr;
  int more = 0;
  while ((more = sd_bus_message_peek_type(message, &type, &contents)) > 0) {
    if (type == 'a' && std::string_view(contents) == "y") {
      const void* bytes = nullptr;
      std::size_t size = 0;
      if (sd_bus_message_read_array(message, 'y', &bytes, &size) < 0) return false;
    } else if (contents != nullptr) {
      if (sd_bus_message_enter_container(message, type, contents) < 0 || !walk(message) ||
          sd_bus_message_exit_container(message) < 0) {
        return false;
      }
    } else {
      std::uint64_t value = 0;  // holds a value of any basic type
      if (sd_bus_message_read_basic(message, type, &value) < 0) return false;
    }
  }
  return more == 0;
}

int readOther(sd_bus_message* message, void* /*userdata*/, sd_bus_error* /*error*/) {
  walk(message);
  return 0;
}

int readChange(sd_bus_message* message, void* read, sd_bus_error* /*error*/) {
  const char* interface = nullptr;
  if (sd_bus_message_read_basic(message, 's', static_cast<void*>(&interface)) >= 0 &&
      walk(message) && std::string_view(interface) == "org.bluez.Device1") {
    ++*static_cast<int*>(read);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  sd_bus* bus = nullptr;
  int read = 0;
  sd_bus_new(&bus);
  sd_bus_set_address(bus, argv[1]);
  sd_bus_set_bus_client(bus, 1);
  if (sd_bus_start(bus) < 0) return 1;
  for (const char* rule : kRules) sd_bus_add_match(bus, nullptr, rule, readOther, nullptr);
  sd_bus_add_match(bus, nullptr, kChanges, readChange, &read);
  if (sd_bus_call_method(bus, "org.bluez", "/org/bluez/hci90", "org.bluez.Adapter1",
                         "StartDiscovery", nullptr, nullptr, "") < 0) {
    return 1;
  }
  std::array<pollfd, 2> ready{{{sd_bus_get_fd(bus), POLLIN, 0}, {0, POLLIN, 0}}};
  while (ready[1].revents == 0) {
    while (sd_bus_process(bus, nullptr) > 0) {
    }
    poll(ready.data(), ready.size(), -1);
  }
  std::cout << read << std::endl;
  sd_bus_flush_close_unref(bus);
}

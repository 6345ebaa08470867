#ifndef APPS_KVFOB_HELP_H
#define APPS_KVFOB_HELP_H

#include <string_view>

namespace kvfob {

/// What stands below the list of commands in the help.
inline constexpr std::string_view kHelpFooter = R"(Radios:
  sim    A simulated radio inside the program: nothing goes over the air. The default.
         It holds three tags: 0a1b2c3d4e5f, bound with the password "sesame", and
         0a1b2c3d4e60 and 0a1b2c3d4e61, which are unbound. They start anew with each run.
  bluez  A real adapter, through the system's Bluetooth service.

Passwords have 1 to 13 bytes. They are asked for on the terminal, without echo, or read
from --password-file; never from the command line.

Examples:
  kvfob demo
  kvfob scan --for 5s
  kvfob ring 0a1b2c3d4e5f                      (the password is "sesame")
  kvfob bind 0A:1B:2C:3D:4E:60 --radio bluez --adapter hci0 --password-file ~/.tag
  kvfob watch 0a1b2c3d4e60 --radio bluez --for 1m
  sudo btmon -w road.btsnoop; kvfob decode road.btsnoop
  kvfob tag --adapter hci1 --battery 80        (then "press", "battery N" or "quit")

Exit status:
  0  done                        4  tag not heard
  1  internal error              5  refused by the tag
  2  wrong usage                 6  timed out
  3  no Bluetooth: no adapter, switched off, no service, or not permitted
  130, 143 after Ctrl-C and SIGTERM, once links and scan have ended
)";

}  // namespace kvfob

#endif  // APPS_KVFOB_HELP_H

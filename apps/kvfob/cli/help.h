// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_CLI_HELP_H
#define APPS_KVFOB_CLI_HELP_H

#include <string_view>

namespace kvfob {

/// What stands below the list of commands in the help.
inline constexpr std::string_view kHelpFooter = R"help(Radios:
  bluez  A real adapter, through the system's Bluetooth service. The default; where there is
         none, "kvfob doctor" tells why.
  sim    A simulated radio inside the program: nothing goes over the air.
         It holds three tags: 0a1b2c3d4e5f, bound with the password "sesame", and
         0a1b2c3d4e60 and 0a1b2c3d4e61, which are unbound. They start anew with each run.
         "scan --sim-tags 12" makes it twelve.

Tags:
  A tag is meant by its address, as "scan" shows it, or by the name that "bind --name" or
  "rename" gave it. Bound tags are remembered in $XDG_STATE_HOME/kvfob/tags, by default
  ~/.local/state/kvfob/tags, which only you can read; those of the simulated radio apart.

Passwords:
  They have 1 to 13 bytes, and come from --password-file, from the saved one, or from the
  terminal, without echo; never from the command line. They are saved only with
  "bind --save-password".

Examples:
  kvfob demo
  kvfob scan                                   (on a terminal: ? tells of the keys)
  kvfob scan --for 1m --sort name
  kvfob scan --json --follow | jq .address
  kvfob bind 0A:1B:2C:3D:4E:60 --name keys --save-password
  kvfob ring keys
  kvfob watch keys
  kvfob list
  kvfob rename keys bicycle
  kvfob forget bicycle
  kvfob --radio sim ring 0a1b2c3d4e5f          (the password is "sesame")
  kvfob --adapter hci1 --log radio alert keys on --password-file ~/.tag
  kvfob doctor
  sudo btmon -w road.btsnoop; kvfob decode road.btsnoop
  kvfob tag --adapter hci1 --battery 80        (then "press", "battery N" or "quit")
  eval "$(kvfob completion bash)"
  kvfob manual | man -l -

Exit status:
  0  done                        4  tag not heard
  1  internal error              5  refused by the tag
  2  wrong usage                 6  timed out
  3  no Bluetooth: no adapter, switched off, no service, or not permitted
  130, 143 after Ctrl-C and SIGTERM, once links and scan have ended
)help";

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_HELP_H

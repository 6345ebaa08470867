// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/help.h"

#include <algorithm>
#include <utility>

#include "apps/kvfob/cli/command_line.h"

namespace kvfob {
namespace {

// Where descriptions begin.
constexpr std::size_t kOptionColumn = 29;
constexpr std::size_t kCommandColumn = 14;
constexpr std::size_t kWidth = 80;

// The name and, behind it, as many lines as it takes to tell what that is.
std::string row(std::size_t begin, const std::string& name, const std::string& description) {
  std::string text = "  " + name;
  text.resize(std::max(begin, text.size() + 2), ' ');
  std::size_t column = begin;
  for (std::size_t at = 0; at < description.size();) {
    const auto end = std::min(description.find(' ', at), description.size());
    const auto word = description.substr(at, end - at);
    if (column > begin && column + word.size() > kWidth) {
      text.back() = '\n';
      text.append(begin, ' ');
      column = begin;
    }
    text += word + ' ';
    column += word.size() + 1;
    at = end + 1;
  }
  text.back() = '\n';
  return text;
}

std::string nameOf(const CLI::Option& option) {
  if (option.get_positional()) return option.get_name(/*positional=*/true);
  std::string name;
  for (const auto& letter : option.get_snames()) name += "-" + letter + ", ";
  name += "--" + option.get_lnames().front();
  return option.get_type_name().empty() ? name : name + " " + option.get_type_name();
}

// The choices of a positional are told by its description: its name is fixed.
std::string descriptionOf(const CLI::Option& option) {
  const auto type = option.get_positional() ? option.get_type_name() : "";
  return option.get_description() + (type.empty() ? "" : ": " + type);
}

std::string usage(const CLI::App& app) {
  std::string text = "Usage: kvfob";
  const bool whole = app.get_parent() == nullptr;
  if (!whole) text += " " + app.get_name();
  text += " [OPTIONS]";
  for (const auto* option : app.get_options()) {
    if (!option->get_positional()) continue;
    const bool several = option->get_expected_max() > 1;
    const auto name = nameOf(*option) + (several ? "..." : "");
    text += option->get_required() ? " " + name : " [" + name + "]";
  }
  return text + (whole ? " COMMAND ...\n" : "\n");
}

// Those of the command before those that it shares.
std::string rows(const CLI::App& app, const std::string& heading, const std::string& group,
                 bool positional) {
  std::string own;
  std::string shared;
  for (const auto* option : app.get_options()) {
    if (option->get_positional() != positional || option->get_group() != group) continue;
    const auto* parent = positional ? nullptr : app.get_parent();
    const bool isOwn = parent == nullptr ||
                       parent->get_option_no_throw("--" + option->get_lnames().front()) == nullptr;
    (isOwn ? own : shared) += row(kOptionColumn, nameOf(*option), descriptionOf(*option));
  }
  return own.empty() && shared.empty() ? "" : "\n" + heading + ":\n" + own + shared;
}

}  // namespace

std::string helpText(const CLI::App& app) {
  const bool whole = app.get_parent() == nullptr;
  std::string text = app.get_description() + (whole ? "\n\n" : ".\n\n") + usage(app);
  if (whole) {
    text += "\nCommands:\n";
    for (const auto* sub : commandsOf(app))
      text += row(kCommandColumn, sub->get_name(), sub->get_description());
  }
  text += rows(app, "Arguments", "Options", /*positional=*/true);
  for (const char* group : {"Options", "Radio", "Output"}) {
    text += rows(app, group, group, /*positional=*/false);
  }
  if (whole) return text.append("\n").append(helpFooter());
  text.append("\nExamples:\n").append(examplesOf(app.get_name()));
  return text + "\n\"kvfob help\" tells of radios, passwords, settings and exit statuses.\n";
}

std::string_view helpFooter() {
  return R"help(Radios:
  bluez  A real adapter, through the system's Bluetooth service. The default; where there is
         none, "kvfob doctor" tells why.
  sim    A simulated radio inside the program: nothing goes over the air.
         It holds three tags: 0a1b2c3d4e5f, bound with the password "sesame", and
         0a1b2c3d4e60 and 0a1b2c3d4e61, which are unbound. They start anew with each run.

Tags:
  A tag is meant by its address, as "scan" shows it, or by the name that "bind --name" or
  "rename" gave it. Addresses may also be written as 0A:1B:2C:3D:4E:5F, 0a-1b-2c-3d-4e-5f
  or 0a1b.2c3d.4e5f. Bound tags are remembered in $XDG_STATE_HOME/kvfob/tags, by default
  ~/.local/state/kvfob/tags, which only you can read; those of the simulated radio apart.
  Nothing binds a tag but "bind". The other commands act on tags that were bound from here;
  one that was bound elsewhere becomes yours by "bind" with the password that it has. With
  --unlisted they act on any tag, and bind it with the password you give if nobody has.

Passwords:
  They have 1 to 13 bytes, and come from --password-file, from the saved one, or from the
  terminal, without echo; never from the command line. They are saved only with
  "bind --save-password".

Settings:
  --radio, --adapter, --timeout, --log and --color may be set once and for all: in the
  environment, as KVFOB_RADIO, KVFOB_ADAPTER, KVFOB_TIMEOUT, KVFOB_LOG and KVFOB_COLOR, or in
  $XDG_CONFIG_HOME/kvfob/config.toml, by default ~/.config/kvfob/config.toml, or another file
  that --config names:
    adapter = "hci1"   # a remark
    timeout = "1m"
  An option beats the environment, and that beats the file; "kvfob config" shows what counts.
  A command passes over those that it does not need. NO_COLOR is heeded, too.

Times:
  500ms, 30s, 1.5m, 2h; a number alone is in seconds.

Exit status:
  0   done
  1   internal error, or the output cannot be written
  2   wrong usage: the command line
  3   no Bluetooth: no adapter, switched off, no service, or not permitted
  4   tag not heard
  5   refused by the tag
  6   timed out
  7   what is remembered cannot be read or written; nothing was done
  8   done on the tag, but it could not be written down
  9   not a tag that was bound from here, or its name is taken; nothing was sent
  10  a file that was given, or a setting, is not what it should be, or cannot be read
  130, 143 after Ctrl-C and SIGTERM, once links and scan have ended
  141 when whoever read the output went away

Examples:
  kvfob demo
  kvfob scan --for 1m --sort name
  kvfob bind 0A:1B:2C:3D:4E:60 --name keys --save-password
  kvfob ring keys
  kvfob --radio sim bind 0a1b2c3d4e5f          (the password is "sesame")
  kvfob help watch
  eval "$(kvfob completion bash)"
)help";
}

std::string_view examplesOf(std::string_view command) {
  static constexpr std::pair<std::string_view, std::string_view> kExamples[] = {
      {"demo", "  kvfob demo\n  kvfob demo --instant --log all\n"},
      {"scan",
       "  kvfob scan --for 1m --sort name\n  kvfob scan --json --follow\n"
       "  kvfob --radio sim scan --sim-tags 12\n"},
      {"decode",
       "  sudo btmon -w road.btsnoop; kvfob decode road.btsnoop\n"
       "  echo a10b64112233445566f4 | kvfob decode --json -\n"},
      {"bind",
       "  kvfob bind 0A:1B:2C:3D:4E:60 --name keys --save-password\n"
       "  kvfob --radio sim bind 0a1b2c3d4e60 --password-file ~/.tag\n"},
      {"ring", "  kvfob ring keys bicycle\n  kvfob ring --all --json\n"},
      {"silence", "  kvfob silence keys\n"},
      {"alert", "  kvfob alert keys on\n  kvfob alert --all off --adapter hci1 --log radio\n"},
      {"delay", "  kvfob delay keys 600\n"},
      {"distance", "  kvfob distance keys near\n"},
      {"unbind", "  kvfob unbind keys\n"},
      {"watch", "  kvfob watch keys\n  kvfob watch keys --for 1h --timeout 2m\n"},
      {"list", "  kvfob list\n  kvfob --radio sim list --names\n"},
      {"rename", "  kvfob rename keys bicycle\n  kvfob rename 0a1b2c3d4e60 \"front door\"\n"},
      {"forget", "  kvfob forget bicycle\n  kvfob forget bicycle --yes\n"},
      {"tag",
       "  kvfob tag --adapter hci1 --battery 80        (then \"press\", \"battery N\" or "
       "\"quit\")\n"},
      {"shell", "  kvfob shell\n  kvfob --radio sim shell < commands.txt\n"},
      {"doctor", "  kvfob doctor\n  kvfob doctor --json --adapter hci1\n"},
      {"config", "  kvfob config\n  KVFOB_RADIO=sim kvfob config --json\n"},
      {"help", "  kvfob help\n  kvfob help watch\n"},
      {"completion",
       "  eval \"$(kvfob completion bash)\"\n"
       "  kvfob completion fish > ~/.config/fish/completions/kvfob.fish\n"},
      {"manual", "  kvfob manual | man -l -\n"},
  };
  for (const auto& [name, lines] : kExamples) {
    if (name == command) return lines;
  }
  return {};
}

}  // namespace kvfob

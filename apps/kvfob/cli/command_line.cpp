// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/command_line.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>

#include "KVFobLink/KVTrackerTypes.h"
#include "KVFobLink/KVVersion.h"
#include "apps/kvfob/base/text.h"
#include "apps/kvfob/book/book.h"
#include "apps/kvfob/cli/help.h"

namespace kvfob {
namespace {

// The longest delay that a tag takes.
constexpr std::int64_t kDelayMost = 7000;

// The words of an option and what they mean.
template <typename Value>
using Choices = std::vector<std::pair<std::string, Value>>;

const Choices<RadioKind> kRadios{{"bluez", RadioKind::BlueZ}, {"sim", RadioKind::Sim}};
const Choices<ColorMode> kColors{
    {"auto", ColorMode::Automatic}, {"always", ColorMode::Always}, {"never", ColorMode::Never}};
const Choices<LogLevel> kLogLevels{
    {"off", LogLevel::Off}, {"radio", LogLevel::Radio}, {"all", LogLevel::All}};
const Choices<SortBy> kOrders{{"rssi", SortBy::Rssi},
                              {"battery", SortBy::Battery},
                              {"name", SortBy::Name},
                              {"heard", SortBy::Heard},
                              {"address", SortBy::Address}};
const Choices<bool> kSwitch{{"on", true}, {"off", false}};
const Choices<std::uint64_t> kLevels{
    {"far", KVDistanceFar}, {"middle", KVDistanceMiddle}, {"near", KVDistanceNear}};
const Choices<Shell> kShells{{"bash", Shell::Bash}, {"zsh", Shell::Zsh}, {"fish", Shell::Fish}};

std::string joined(const std::vector<std::string>& words, const std::string& separator) {
  std::string text;
  for (const auto& word : words) text += (text.empty() ? "" : separator) + word;
  return text;
}

// An option that takes one of a few words.
template <typename Value>
CLI::Option* addChoice(CLI::App& app, const std::string& name, const std::string& help,
                       const Choices<Value>& choices, Value& value) {
  std::vector<std::string> words;
  for (const auto& choice : choices) words.push_back(choice.first);
  const auto store = [name, words, &choices, &value](const std::string& text) {
    for (const auto& [word, meaning] : choices) {
      if (word == text) {
        value = meaning;
        return;
      }
    }
    throw CLI::ValidationError(name + ": \"" + text + "\" is none of " + joined(words, ", "));
  };
  return app.add_option_function<std::string>(name, store, help)->type_name(joined(words, "|"));
}

template <typename Parsed>
CLI::Option* addParsed(CLI::App& app, const std::string& name, const std::string& help,
                       std::optional<Parsed> (*parse)(std::string_view),
                       const std::string& expected, std::function<void(Parsed)> store) {
  return app.add_option_function<std::string>(
      name,
      [=](const std::string& text) {
        const auto value = parse(text);
        if (!value) throw CLI::ValidationError(name + ": \"" + text + "\" is not " + expected);
        store(*value);
      },
      help);
}

// What every command takes.
void addCommon(CLI::App& app, Options& options) {
  addChoice(app, "--radio", "Which radio: that of the machine (the default), or a simulated one",
            kRadios, options.radio)
      ->group("Radio");
  app.add_option("--adapter", options.adapter, "Which adapter of bluez: hci0, or its address")
      ->type_name("NAME")
      ->group("Radio");
  app.add_option("--seed", options.seed, "What the simulated radio's chances start from")
      ->type_name("N")
      ->group("Radio");
  addChoice(app, "--color", "Colours: on a terminal (the default), or as told; NO_COLOR counts",
            kColors, options.color)
      ->group("Output");
  addChoice(app, "--log",
            "The library's lines on standard error: none (the default), the radio's, or all",
            kLogLevels, options.log)
      ->group("Output");
}

void addTimeout(CLI::App& app, Options& options, const std::string& help) {
  addParsed<std::chrono::milliseconds>(app, "--timeout", help, parseDuration,
                                       "a time such as 30, 1.5m or 500ms",
                                       [&](auto value) { options.timeout = value; })
      ->type_name("TIME");
}

void addPasswordFile(CLI::App& app, Options& options, const std::string& help) {
  app.add_option("--password-file", options.passwordFile, help)->type_name("FILE");
}

void addDuration(CLI::App& app, Options& options, const std::string& help) {
  addParsed<std::chrono::milliseconds>(app, "--for", help, parseDuration,
                                       "a time such as 10s, 1.5m or 500ms",
                                       [&](auto value) { options.duration = value; })
      ->type_name("TIME");
}

CLI::Option* addAddress(CLI::App& app, const std::string& name, const std::string& help,
                        std::string& address) {
  return addParsed<std::string>(app, name, help, parseAddress,
                                "an address: 12 hexadecimal digits, as 0a1b2c3d4e5f",
                                [&](auto value) { address = value; })
      ->type_name("");
}

CLI::App& addCommand(CLI::App& app, Options& options, Command command, const std::string& name,
                     const std::string& help) {
  auto* sub = app.add_subcommand(name, help);
  sub->callback([&options, command] { options.command = command; });
  sub->footer("kvfob --help tells of radios, passwords and exit statuses, with examples.");
  addCommon(*sub, options);
  return *sub;
}

void addTag(CLI::App& app, Options& options) {
  app.add_option("TAG", options.tag, "The tag's address, or your name for it")
      ->type_name("")
      ->required();
}

void addName(CLI::App& app, const std::string& name, const std::string& help, Options& options) {
  app.add_option_function<std::string>(
         name,
         [name, &options](const std::string& text) {
           if (const auto why = wrongName(text)) {
             throw CLI::ValidationError(name + ": \"" + text + "\": " + *why);
           }
           options.name = text;
         },
         help)
      ->type_name(name.front() == '-' ? "NAME" : "");
}

CLI::App& addTagCommand(CLI::App& app, Options& options, Command command, const std::string& name,
                        const std::string& help) {
  auto& sub = addCommand(app, options, command, name, help);
  addTag(sub, options);
  addPasswordFile(sub, options,
                  "Where the tag's password is (- for standard input); else the one that was "
                  "saved, or you are asked");
  addTimeout(sub, options, "How long the whole of it may take (30s)");
  return sub;
}

void addScan(CLI::App& app, Options& options) {
  auto& scan = addCommand(app, options, Command::Scan, "scan",
                          "List the tags in range; on a terminal also ring, bind and watch them");
  scan.callback([&options] {
    if (options.simTags > 0 && options.radio != RadioKind::Sim) {
      throw CLI::ValidationError("--sim-tags: only --radio sim has them");
    }
    if (options.follow && !options.json) throw CLI::ValidationError("--follow: only with --json");
    options.command = Command::Scan;
  });
  addDuration(scan, options, "How long to listen (on a terminal until \"q\", else 10s)");
  scan.add_flag("--json", options.json,
                "One JSON object a line whenever a tag is first heard, or is news");
  scan.add_flag("--follow", options.follow, "With --json: go on until Ctrl-C")
      ->excludes(scan.get_option("--for"));
  addChoice(scan, "--sort", "By what the table is sorted (rssi); \"s\" changes it", kOrders,
            options.sort);
  scan.add_option("--sim-tags", options.simTags, "So many tags on the simulated radio")
      ->check(CLI::Range(std::size_t{1}, std::size_t{5000}).description(""))
      ->type_name("N");
}

void addPlainCommands(CLI::App& app, Options& options) {
  addCommand(app, options, Command::Demo, "demo",
             "Walk the whole road with a virtual tag, in about ten seconds")
      .add_flag("--instant", options.instant, "Let the time pass in an instant");
  addScan(app, options);
  auto& decode = addCommand(app, options, Command::Decode, "decode",
                            "Tell what a capture or advertisement frames hold of tags");
  decode
      .add_option("FILE", options.file,
                  "A btsnoop capture, or frames in hexadecimal; - for standard input")
      ->type_name("")
      ->required();
  decode.add_flag("--show-secrets", options.showSecrets, "Print keys and passwords, too");
}

void addTagCommands(CLI::App& app, Options& options) {
  auto& bind = addTagCommand(app, options, Command::Bind, "bind", "Bind a tag with a password");
  addName(bind, "--name", "What you will call it, in place of its address", options);
  bind.add_flag("--save-password", options.savePassword,
                "Keep the password, readable by you only, so that you are not asked again");
  addTagCommand(app, options, Command::Ring, "ring", "Ring a tag's bell");
  addTagCommand(app, options, Command::Silence, "silence", "Silence a tag's bell");
  auto& alert = addTagCommand(app, options, Command::Alert, "alert", "Switch a tag's loss alert");
  addChoice(alert, "STATE", "What it shall be", kSwitch, options.on)->required();
  auto& delay = addTagCommand(app, options, Command::Delay, "delay",
                              "Set how long a tag waits after a loss before it alerts");
  delay.add_option("N", options.delay, "0 to 7000, in the firmware's own unit")
      ->check(CLI::Range(std::int64_t{0}, kDelayMost).description(""))
      ->type_name("")
      ->required();
  auto& distance = addTagCommand(app, options, Command::Distance, "distance",
                                 "Set how far a tag may be before it counts as lost");
  addChoice(distance, "LEVEL", "How far", kLevels, options.level)->required();
  addTagCommand(app, options, Command::Unbind, "unbind", "Remove a tag's password");
  auto& watch = addTagCommand(app, options, Command::Watch, "watch",
                              "Follow a tag's signal, link and button until Ctrl-C");
  addDuration(watch, options, "How long to watch");
}

void addVirtualTag(CLI::App& app, Options& options) {
  auto& tag = addCommand(app, options, Command::Tag, "tag",
                         "Put a virtual tag on the air through an adapter of bluez");
  tag.callback([&options] {
    if (options.radio == RadioKind::Sim) {
      throw CLI::ValidationError(
          "a tag on a simulated radio is heard by nobody; try --radio bluez");
    }
    if (options.adapter.empty()) throw CLI::RequiredError("--adapter");
    options.command = Command::Tag;
  });
  addAddress(tag, "--address", "The address in its advertisements (the adapter's own)",
             options.address)
      ->type_name("ADDRESS");
  tag.add_option("--model", options.model, "Its model number, 0 to 255")
      ->check(CLI::Range(0, 255).description(""))
      ->type_name("N");
  tag.add_option("--battery", options.battery, "Its battery value, 0 to 255")
      ->check(CLI::Range(0, 255).description(""))
      ->type_name("N");
  addTimeout(tag, options, "How long the adapter may take to be found (3s at most)");
  addPasswordFile(tag, options, "The password that it is bound with already; else it is unbound");
}

void addBookCommands(CLI::App& app, Options& options) {
  auto& list =
      addCommand(app, options, Command::List, "list", "List the tags that were bound from here");
  list.add_flag("--json", options.json, "One JSON object a line and tag");
  list.add_flag("--names", options.names, "Only what may stand for TAG, one a line");
  auto& rename = addCommand(app, options, Command::Rename, "rename", "Give a tag another name");
  addTag(rename, options);
  addName(rename, "NAME", "What you will call it; none to call it by its address", options);
  addTag(addCommand(app, options, Command::Forget, "forget",
                    "Forget a tag, its name and its password; the tag itself stays as it is"),
         options);
}

void addHelpers(CLI::App& app, Options& options) {
  addCommand(app, options, Command::Doctor, "doctor",
             "Tell what is wrong with Bluetooth here, and what to do");
  auto& completion = addCommand(app, options, Command::Completion, "completion",
                                "Print a shell's completions for this program");
  addChoice(completion, "SHELL", "For which shell", kShells, options.shell)->required();
  addCommand(app, options, Command::Manual, "manual", "Print the manual page, for man(1)");
}

}  // namespace

std::unique_ptr<CLI::App> makeCommandLine(Options& options) {
  auto made = std::make_unique<CLI::App>(
      "Finds and drives key-finder tags over Bluetooth Low Energy.", "kvfob");
  auto& app = *made;
  app.require_subcommand(1);
  app.footer(std::string(kHelpFooter));
  app.set_version_flag("--version", reinterpret_cast<const char*>(KVFobLinkVersionString));
  // What every command takes may stand before the command, too.
  addCommon(app, options);
  addTimeout(app, options, "How long the whole of it may take (30s)");
  addPlainCommands(app, options);
  addTagCommands(app, options);
  addBookCommands(app, options);
  addVirtualTag(app, options);
  addHelpers(app, options);
  return made;
}

}  // namespace kvfob

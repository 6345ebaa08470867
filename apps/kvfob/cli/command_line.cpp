// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/command_line.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <map>

#include "KVFobLink/KVVersion.h"
#include "apps/kvfob/base/tag_facts.h"
#include "apps/kvfob/base/text.h"
#include "apps/kvfob/book/book.h"
#include "apps/kvfob/cli/help.h"
#include "apps/kvfob/cli/settings.h"
#include "apps/kvfob/cli/words.h"

namespace kvfob {
namespace {

constexpr std::uint64_t kCrowdMost = 5000;

// Takes a value, or tells why not.
using Take = std::function<std::string(const std::string& text)>;

// The options that several commands have; each names those that it heeds.
using Heeded = std::vector<std::string>;
const Heeded kLive{"radio", "adapter", "seed", "log", "color"};
const Heeded kOnTag{"radio", "adapter", "seed", "timeout", "log"};

CLI::Option* addValue(CLI::App& app, const std::string& name, const std::string& type,
                      const std::string& help, const Take& take) {
  auto* option = app.add_option_function<std::string>(
      name,
      [name, take](const std::string& text) {
        const auto why = take(text);
        if (!why.empty()) throw CLI::ValidationError(name + ": " + why);
      },
      help);
  if (name.front() == '-') option->take_last();
  return option->type_name(type);
}

// An option that takes one of a few words.
template <typename Value>
CLI::Option* addChoice(CLI::App& app, const std::string& name, const std::string& help,
                       const Words<Value>& words, Value& value) {
  return addValue(app, name, listOf(words, "|"), help, [&words, &value](const std::string& text) {
    return takeWord(words, text, value);
  });
}

template <typename Number>
CLI::Option* addNumber(CLI::App& app, const std::string& name, const std::string& help,
                       std::uint64_t most, Number& value) {
  const auto type = name.front() == '-' ? "N" : "";
  return addValue(app, name, type, help, [most, &value](const std::string& text) -> std::string {
    const auto number = parseNumber(text, 0, most);
    if (!number) return "\"" + text + "\" is not a whole number from 0 to " + std::to_string(most);
    value = static_cast<Number>(*number);
    return {};
  });
}

CLI::Option* addText(CLI::App& app, const std::string& name, const std::string& type,
                     const std::string& help, std::string& value) {
  return addValue(app, name, type, help, [&value](const std::string& text) -> std::string {
    if (text.empty()) return "it is empty";
    value = text;
    return {};
  });
}

void addSetting(CLI::App& app, Options& options, const Setting& setting) {
  auto* option = addValue(
      app, "--" + setting.name, setting.type, setting.help,
      [&options, &setting](const std::string& text) { return setting.take(text, options); });
  if (!setting.group.empty()) option->group(setting.group);
}

// What is wrong with the tags that a command line names.
void checkTags(const Options& options) {
  if (options.tags.empty() && !options.all) throw CLI::RequiredError("TAG, or --all,");
  if (!options.tags.empty() && options.all) throw CLI::ExcludesError("--all", "TAG");
}

// Where a command's account is put together, so that it need not be handed about.
class Builder {
 public:
  Builder(CLI::App& app, Options& options, std::string& configFile)
      : app_(app), options_(options), configFile_(configFile) {}

  void addCommon(CLI::App& app, const Heeded& heeded) {
    bool settingsCount = false;
    for (const auto& name : heeded) {
      if (name == "seed") {
        addNumber(app, "--seed", "What the simulated radio's chances start from: 0 and above (1)",
                  UINT64_MAX, options_.seed)
            ->group("Radio");
      } else {
        addSetting(app, options_, settingOf(name));
        settingsCount = true;
      }
    }
    if (settingsCount) {
      addText(app, "--config", "FILE", "Settings to use in place of your own", configFile_);
    }
  }

  // The radio of such a command cannot be chosen, but it may be named.
  void addFixedRadio(CLI::App& app) {
    addSetting(app, options_, settingOf("radio"));
    app.get_option("--radio")->group("");
  }

  CLI::App& add(Command command, const std::string& name, const std::string& help,
                const Heeded& heeded = {}) {
    auto* sub = app_.add_subcommand(name, help);
    sub->callback([&options = options_, command, name, checks = checks_] {
      options.command = command;
      options.word = name;
      if (const auto check = checks->find(name); check != checks->end()) check->second();
    });
    addCommon(*sub, heeded);
    return *sub;
  }

  CLI::App& addOnTag(Command command, const std::string& name, const std::string& help) {
    auto& sub = add(command, name, help);
    addPasswordFile(sub,
                    "Where the tag's password is (- for standard input); else the one that was "
                    "saved, or you are asked");
    addCommon(sub, kOnTag);
    addJson(sub);
    return sub;
  }

  // One tag.
  void addTag(CLI::App& sub) {
    addValue(sub, "TAG", "", "The tag's address, or your name for it",
             [&options = options_](const std::string& text) -> std::string {
               if (text.empty()) return "it is empty";
               options.tags = {text};
               return {};
             })
        ->required();
  }

  // Several tags.
  void addTags(CLI::App& sub) {
    sub.add_option("TAG", options_.tags, "Each tag's address, or your name for it")->type_name("");
    sub.add_flag("--all", options_.all, "All tags of yours on this radio");
    (*checks_)[sub.get_name()] = [&options = options_] { checkTags(options); };
  }

  // `last` takes the last word: CLI11 gives a list all the words that there are.
  void takeLast(CLI::App& sub, CLI::Option* last) {
    (*checks_)[sub.get_name()] = [&options = options_, last] {
      if (options.tags.empty()) throw CLI::RequiredError(last->get_name());
      last->add_result(options.tags.back())->run_callback();
      options.tags.pop_back();
      checkTags(options);
    };
  }

  void addUnlisted(CLI::App& sub) {
    sub.add_flag("--unlisted", options_.unlisted,
                 "Also a tag that is not yours; it is bound with the password that you give, if "
                 "nobody has bound it");
  }

  void addPasswordFile(CLI::App& sub, const std::string& help) {
    addText(sub, "--password-file", "FILE", help, options_.passwordFile);
  }

  void addDuration(CLI::App& sub, const std::string& help) {
    addValue(sub, "--for", "TIME", help, [&options = options_](const std::string& text) {
      options.duration = parseDuration(text);
      return options.duration ? std::string()
                              : "\"" + text + "\" is not a time such as 30s, 1.5m or 500ms";
    });
  }

  void addName(CLI::App& sub, const std::string& name, const std::string& help) {
    const auto type = name.front() == '-' ? "NAME" : "";
    addValue(sub, name, type, help, [&options = options_](const std::string& text) -> std::string {
      if (const auto why = wrongName(text)) return "\"" + text + "\": " + *why;
      options.name = text;
      return {};
    });
  }

  CLI::Option* addJson(CLI::App& sub) {
    return sub.add_flag("--json", options_.json, "One JSON object a line");
  }

  void addPlain();
  void addScan();
  void addOnTags();
  void addOverLinks();
  void addBook();
  void addVirtualTag();
  void addHelpers();

 private:
  CLI::App& app_;
  Options& options_;
  std::string& configFile_;
  // What is to be done once all of a command's line is read.
  const std::shared_ptr<std::map<std::string, std::function<void()>>> checks_ =
      std::make_shared<std::map<std::string, std::function<void()>>>();
};

void Builder::addScan() {
  auto& scan = add(Command::Scan, "scan",
                   "List the tags in range; on a terminal also ring, bind and watch them", kLive);
  addDuration(scan, "How long to listen: 500ms, 30s, 1.5m (10s; on a terminal until \"q\")");
  addJson(scan);
  scan.add_flag("--follow", options_.follow, "With --json: go on until Ctrl-C")
      ->excludes(scan.get_option("--for"));
  addChoice(scan, "--sort", "By what the table is sorted (rssi); \"s\" changes it", kOrders,
            options_.sort);
  addNumber(scan, "--sim-tags", "So many tags on the simulated radio (3)", kCrowdMost,
            options_.simTags);
  (*checks_)["scan"] = [&options = options_] {
    if (options.simTags > 0 && options.radio != RadioKind::Sim) {
      throw CLI::ValidationError("--sim-tags: only --radio sim has them");
    }
    if (options.follow && !options.json) throw CLI::ValidationError("--follow: only with --json");
  };
}

void Builder::addPlain() {
  auto& demo =
      add(Command::Demo, "demo", "Walk the whole road with a virtual tag, in about ten seconds",
          {"seed", "log", "color"});
  demo.add_flag("--instant", options_.instant, "Let the time pass in an instant");
  addFixedRadio(demo);
  addScan();
  auto& decode =
      add(Command::Decode, "decode", "Tell what a capture or advertisement frames hold of tags");
  addText(decode, "FILE", "", "A btsnoop capture, or frames in hexadecimal; - for standard input",
          options_.file)
      ->required();
  decode.add_flag("--show-secrets", options_.showSecrets, "Print keys and passwords, too");
  addJson(decode);
}

void Builder::addOnTags() {
  auto& bind = addOnTag(Command::Bind, "bind", "Bind a tag with a password");
  addTag(bind);
  addName(bind, "--name", "What you will call it, in place of its address");
  bind.add_flag("--save-password", options_.savePassword,
                "Keep the password, readable by you only, so that you are not asked again");
  addTags(addOnTag(Command::Unbind, "unbind",
                   "Unbind a tag: it forgets its password, and anybody can bind it"));
  auto& watch =
      addOnTag(Command::Watch, "watch", "Follow a tag's signal, link and button until Ctrl-C");
  addTag(watch);
  addUnlisted(watch);
  addSetting(watch, options_, settingOf("color"));
  watch.get_option("--timeout")->description("How long it may take to get through to it (30s)");
  addDuration(watch, "How long to watch: 500ms, 30s, 1.5m (until Ctrl-C)");
}

void Builder::addOverLinks() {
  const auto add = [this](Command command, const char* name, const char* help) -> CLI::App& {
    auto& sub = addOnTag(command, name, help);
    addTags(sub);
    addUnlisted(sub);
    return sub;
  };
  add(Command::Ring, "ring", "Ring a tag's bell");
  add(Command::Silence, "silence", "Silence a tag's bell");
  auto& alert = add(Command::Alert, "alert", "Switch a tag's loss alert");
  takeLast(alert, addChoice(alert, "STATE", "What it shall be", kSwitch, options_.on));
  auto& delay =
      add(Command::Delay, "delay", "Set how long a tag waits after a loss before it alerts");
  takeLast(delay, addNumber(delay, "N", "0 to 7000, in the firmware's own unit", kDelayMost,
                            options_.delay));
  auto& distance =
      add(Command::Distance, "distance", "Set how far a tag may be before it counts as lost");
  takeLast(distance, addChoice(distance, "LEVEL", "How far", kLevels, options_.level));
}

void Builder::addVirtualTag() {
  auto& tag = add(Command::Tag, "tag", "Put a virtual tag on the air through an adapter of bluez",
                  {"adapter", "timeout"});
  addFixedRadio(tag);
  tag.get_option("--timeout")->description("How long it may take to come on the air (30s)");
  addValue(tag, "--address", "ADDRESS", "The address in its advertisements (the adapter's own)",
           [&options = options_](const std::string& text) -> std::string {
             const auto address = parseAddress(text);
             if (!address) return "\"" + text + "\" is not 12 hexadecimal digits, as 0a1b2c3d4e5f";
             options.address = *address;
             return {};
           });
  addNumber(tag, "--model", "Its model number, 0 to 255 (1)", UINT8_MAX, options_.model);
  addNumber(tag, "--battery", "Its battery value, 0 to 255 (100)", UINT8_MAX, options_.battery);
  addPasswordFile(tag, "The password that it is bound with already; else it is unbound");
  addJson(tag);
}

void Builder::addBook() {
  auto& list =
      add(Command::List, "list", "List the tags that were bound from here", {"radio", "color"});
  auto* json = addJson(list);
  list.add_flag("--names", options_.names,
                "Only what may stand for TAG with the radio in force, one a line")
      ->excludes(json);
  auto& rename = add(Command::Rename, "rename", "Give a tag another name", {"radio"});
  addTag(rename);
  addName(rename, "NAME", "What you will call it; none to call it by its address");
  auto& forget =
      add(Command::Forget, "forget",
          "Forget a tag, its name and its password; the tag itself stays as it is", {"radio"});
  addTag(forget);
  forget.add_flag("--yes", options_.sure, "Ask nothing, although a password is lost");
}

void Builder::addHelpers() {
  add(Command::Shell, "shell", "Take commands one after the other, over links that stay up",
      {"radio", "adapter", "seed", "log", "color"});
  auto& doctor =
      add(Command::Doctor, "doctor", "Tell what is wrong with Bluetooth here, and what to do",
          {"adapter", "color"});
  addFixedRadio(doctor);
  addJson(doctor);
  addJson(add(Command::Config, "config", "Show the settings in force, and where they come from",
              {"radio", "adapter", "timeout", "log", "color"}));
  addText(add(Command::Help, "help", "Tell of the program, or of one of its commands"), "COMMAND",
          "", "Which", options_.topic);
  auto& completion =
      add(Command::Completion, "completion", "Print a shell's completions for this program");
  addChoice(completion, "SHELL", "For which shell", kShells, options_.shell)->required();
  add(Command::Manual, "manual", "Print the manual page, for man(1)");
}

}  // namespace

std::unique_ptr<CLI::App> makeCommandLine(Options& options, std::string& configFile) {
  auto app = std::make_unique<CLI::App>(
      "Finds and drives key-finder tags over Bluetooth Low Energy.", "kvfob");
  app->require_subcommand(1);
  app->set_version_flag("-V,--version", versionLine())->description("Print the version");
  app->set_help_flag("-h,--help", "Print this help, or that of a command");
  Builder builder(*app, options, configFile);
  // These may stand before the command, too.
  builder.addCommon(*app, {"radio", "adapter", "seed", "timeout", "log", "color"});
  builder.addPlain();
  builder.addOnTags();
  builder.addOverLinks();
  builder.addBook();
  builder.addVirtualTag();
  builder.addHelpers();
  for (auto* sub : app->get_subcommands({})) sub->set_help_flag("-h,--help", "Print this help");
  return app;
}

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

bool isHidden(const CLI::Option& option) { return option.get_group().empty(); }

std::string versionLine() {
  const auto number = [](int part) { return std::to_string(part); };
  return "kvfob " + number(KVFOBLINK_VERSION_MAJOR) + "." + number(KVFOBLINK_VERSION_MINOR) + "." +
         number(KVFOBLINK_VERSION_PATCH);
}

}  // namespace kvfob

#include "apps/kvfob/options.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>

#include "KVFobLink/KVVersion.h"
#include "apps/kvfob/help.h"
#include "apps/kvfob/text.h"

namespace kvfob {
namespace {

/// The longest delay that a tag takes.
constexpr std::int64_t kDelayMost = 7000;

std::optional<RadioKind> parseRadio(std::string_view text) {
  if (text == "sim") return RadioKind::sim;
  if (text == "bluez") return RadioKind::bluez;
  return std::nullopt;
}

std::optional<ColorMode> parseColor(std::string_view text) {
  if (text == "auto") return ColorMode::automatic;
  if (text == "always") return ColorMode::always;
  if (text == "never") return ColorMode::never;
  return std::nullopt;
}

std::optional<bool> parseSwitch(std::string_view text) {
  if (text != "on" && text != "off") return std::nullopt;
  return text == "on";
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

/// What every command takes.
void addCommon(CLI::App& app, Options& options) {
  addParsed<RadioKind>(app, "--radio", "Which radio: sim (the default) or bluez", parseRadio,
                       "sim or bluez", [&](auto radio) { options.radio = radio; })
      ->type_name("RADIO")
      ->group("Radio");
  app.add_option("--adapter", options.adapter, "Which adapter of bluez: hci0, or its address")
      ->type_name("NAME")
      ->group("Radio");
  app.add_option("--seed", options.seed, "What the simulated radio's chances start from")
      ->type_name("N")
      ->group("Radio");
  addParsed<ColorMode>(app, "--color", "auto (the default), always or never; NO_COLOR counts",
                       parseColor, "auto, always or never",
                       [&](auto color) { options.color = color; })
      ->type_name("WHEN")
      ->group("Output");
  app.add_flag("--log", options.log, "Show the library's diagnostic lines on standard error")
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

CLI::App& addTagCommand(CLI::App& app, Options& options, Command command, const std::string& name,
                        const std::string& help) {
  auto& sub = addCommand(app, options, command, name, help);
  addAddress(sub, "TAG", "The tag's address", options.tag)->required();
  addPasswordFile(sub, options,
                  "Where the tag's password is (- for standard input); else you are asked");
  addTimeout(sub, options, "How long the whole of it may take (30s)");
  return sub;
}

void addPlainCommands(CLI::App& app, Options& options) {
  addCommand(app, options, Command::demo, "demo",
             "Walk the whole road with a virtual tag, in about ten seconds")
      .add_flag("--instant", options.instant, "Let the time pass in an instant");
  auto& scan = addCommand(app, options, Command::scan, "scan", "List the tags in range");
  addDuration(scan, options, "How long to listen (10s)");
  scan.add_flag("--json", options.json, "One JSON object a line and tag");
  auto& decode = addCommand(app, options, Command::decode, "decode",
                            "Tell what a capture or advertisement frames hold of tags");
  decode
      .add_option("FILE", options.file,
                  "A btsnoop capture, or frames in hexadecimal; - for standard input")
      ->type_name("")
      ->required();
  decode.add_flag("--show-secrets", options.showSecrets, "Print keys and passwords, too");
}

void addTagCommands(CLI::App& app, Options& options) {
  addTagCommand(app, options, Command::bind, "bind", "Bind a tag with a password");
  addTagCommand(app, options, Command::ring, "ring", "Ring a tag's bell");
  addTagCommand(app, options, Command::silence, "silence", "Silence a tag's bell");
  auto& alert = addTagCommand(app, options, Command::alert, "alert", "Switch a tag's loss alert");
  addParsed<bool>(alert, "STATE", "on or off", parseSwitch, "on or off",
                  [&](auto on) { options.on = on; })
      ->type_name("")
      ->required();
  auto& delay = addTagCommand(app, options, Command::delay, "delay",
                              "Set how long a tag waits after a loss before it alerts");
  delay.add_option("N", options.delay, "0 to 7000, in the firmware's own unit")
      ->check(CLI::Range(std::int64_t{0}, kDelayMost).description(""))
      ->type_name("")
      ->required();
  auto& distance = addTagCommand(app, options, Command::distance, "distance",
                                 "Set how far a tag may be before it counts as lost");
  addParsed<std::uint64_t>(distance, "LEVEL", "far, middle or near", parseLevel,
                           "far, middle or near", [&](auto level) { options.level = level; })
      ->type_name("")
      ->required();
  addTagCommand(app, options, Command::unbind, "unbind", "Remove a tag's password");
  auto& watch = addTagCommand(app, options, Command::watch, "watch",
                              "Follow a tag's signal, link and button until Ctrl-C");
  addDuration(watch, options, "How long to watch");
}

void addVirtualTag(CLI::App& app, Options& options) {
  auto& tag = addCommand(app, options, Command::tag, "tag",
                         "Put a virtual tag on the air through an adapter of bluez");
  tag.callback([&] {
    if (app.count("--radio") + tag.count("--radio") > 0 && options.radio == RadioKind::sim) {
      throw CLI::ValidationError(
          "a tag on a simulated radio is heard by nobody; try --radio bluez");
    }
    if (options.adapter.empty()) throw CLI::RequiredError("--adapter");
    options.command = Command::tag;
    options.radio = RadioKind::bluez;
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

}  // namespace

std::variant<Options, Outcome> parseOptions(int argc, const char* const* argv) {
  Options options;
  CLI::App app("Finds and drives key-finder tags over Bluetooth Low Energy.", "kvfob");
  app.require_subcommand(1);
  app.footer(std::string(kHelpFooter));
  app.set_version_flag("--version", reinterpret_cast<const char*>(KVFobLinkVersionString));
  // What every command takes may stand before the command, too.
  addCommon(app, options);
  addTimeout(app, options, "How long the whole of it may take (30s)");
  addPlainCommands(app, options);
  addTagCommands(app, options);
  addVirtualTag(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& success) {
    app.exit(success, std::cout, std::cerr);
    return Outcome{kDone, ""};
  } catch (const CLI::ParseError& error) {
    return Outcome{kUsage, std::string(error.what()) + " (see kvfob --help)"};
  }
  return options;
}

}  // namespace kvfob

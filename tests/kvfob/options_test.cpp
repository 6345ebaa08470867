// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include "KVFobLink/KVTrackerTypes.h"
#include "apps/kvfob/cli/settings.h"
#include "apps/kvfob/cli/suggest.h"
#include "tests/kvfob/child.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;

// Without the settings of whoever runs it.
class CommandLineTest : public ::testing::Test {
 protected:
  CommandLineTest() {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder + "/kvfob");
    setenv("XDG_CONFIG_HOME", folder.c_str(), /*overwrite=*/1);
    for (const auto& setting : settings()) unsetenv(setting.variable.c_str());
  }
  ~CommandLineTest() override { std::filesystem::remove_all(folder); }

  static std::variant<Options, Outcome> parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "kvfob");
    std::string printed;
    return parseOptions(static_cast<int>(arguments.size()), arguments.data(), printed);
  }
  static std::string printed(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "kvfob");
    std::string text;
    const auto parsed = parseOptions(static_cast<int>(arguments.size()), arguments.data(), text);
    const auto* outcome = std::get_if<Outcome>(&parsed);
    return outcome != nullptr && outcome->code == kDone ? text : "(an error)";
  }
  void expectError(const std::vector<const char*>& arguments, int code,
                   const std::string& message) {
    const auto parsed = parse(arguments);
    const auto* outcome = std::get_if<Outcome>(&parsed);
    ASSERT_NE(outcome, nullptr) << ::testing::PrintToString(arguments);
    EXPECT_EQ(outcome->code, code) << ::testing::PrintToString(arguments);
    EXPECT_THAT(outcome->message, HasSubstr(message));
  }
  void write(const std::string& text) const { std::ofstream(file) << text; }

  const std::string folder = ::testing::TempDir() + "kvfob-config-" + std::to_string(getpid());
  const std::string file = folder + "/kvfob/config.toml";
};

TEST_F(CommandLineTest, ReadsOptions) {
  const auto scan = std::get<Options>(parse({"scan", "--for", "2s", "--json", "--sort", "name"}));
  EXPECT_EQ(scan.command, Command::Scan);
  EXPECT_EQ(scan.radio, RadioKind::BlueZ);
  EXPECT_EQ(scan.duration, 2s);
  EXPECT_TRUE(scan.json);
  EXPECT_EQ(scan.sort, SortBy::Name);

  const auto watch = std::get<Options>(
      parse({"--radio", "sim", "--timeout", "5", "--seed", "18446744073709551615", "watch",
             "0A:1B:2C:3D:4E:5F", "--color", "never", "--log", "radio", "--log", "all"}));
  EXPECT_EQ(watch.command, Command::Watch);
  EXPECT_EQ(watch.radio, RadioKind::Sim);
  EXPECT_TRUE(watch.radioGiven);
  EXPECT_EQ(watch.tags, std::vector<std::string>{"0A:1B:2C:3D:4E:5F"});
  EXPECT_EQ(watch.timeout, 5s);
  EXPECT_EQ(watch.seed, UINT64_MAX);
  EXPECT_EQ(watch.color, ColorMode::Never);
  EXPECT_EQ(watch.log, LogLevel::All) << "the last one counts";

  const auto alert = std::get<Options>(
      parse({"--adapter", "hci7", "alert", "keys", "on", "--adapter", "0a-1b-2c-3d-4e-5f"}));
  EXPECT_TRUE(alert.on);
  EXPECT_EQ(alert.adapter, "0A:1B:2C:3D:4E:5F") << "as the service spells it";

  EXPECT_EQ(std::get<Options>(parse({"delay", "0a1b2c3d4e5f", "7000"})).delay, 7000);
  EXPECT_EQ(std::get<Options>(parse({"distance", "0a1b2c3d4e5f", "near"})).level, KVDistanceNear);

  const auto tag = std::get<Options>(parse({"tag", "--radio", "bluez", "--adapter", "hci1",
                                            "--battery", "255", "--address", "0A1B.2c3d.4e5f"}));
  EXPECT_EQ(tag.radio, RadioKind::BlueZ);
  EXPECT_EQ(tag.battery, 255);
  EXPECT_EQ(tag.address, "0a1b2c3d4e5f");
  EXPECT_EQ(std::get<Options>(parse({"--radio", "sim", "demo"})).radio, RadioKind::Sim);
}

TEST_F(CommandLineTest, RefusesWrongUsage) {
  const std::pair<std::vector<const char*>, const char*> kCases[] = {
      {{"--radio", "sim"}, "a command is missing (see \"kvfob help\")"},
      {{"rign", "keys"},
       "there is no command \"rign\"; did you mean \"ring\"? (see \"kvfob help\")"},
      {{"help", "wtach"}, "there is no command \"wtach\"; did you mean \"watch\"?"},
      {{"ring"}, "TAG, or --all, is required (see \"kvfob help ring\")"},
      {{"watch", "keys", "car"}, "\"car\" is one argument too many for \"watch\""},
      {{"ring", "keys", "--password", "x"},
       "\"ring\" has no option \"--password\"; did you mean \"--password-file\"? (see \"kvfob help "
       "ring"},
      {{"ring", "--adaptr=hci0"},
       "\"ring\" has no option \"--adaptr\"; did you mean \"--adapter\"?"},
      {{"--jsno", "scan"}, "\"kvfob\" has no option \"--jsno\" (see \"kvfob help\")"},
      {{"demo", "--adapter", "hci0"}, "\"demo\" has no option \"--adapter\" (see"},
      {{"demo", "--radoi", "sim"}, "\"demo\" has no option \"--radoi\" (see"},
      {{"bind", "0a1b2c3d4e5f", "--name", "0a1b.2c3d.4e60"},
       "--name: \"0a1b.2c3d.4e60\": an address"},
      {{"bind", "keys", "--password-file", ""}, "--password-file: it is empty"},
      {{"rename", "keys", "--", "-keys"}, "NAME: \"-keys\": a name does not begin"},
      {{"ring", "keys", "--timeout", "0"}, "--timeout: \"0\" is not a time such as 30s"},
      {{"scan", "--for"}, "--for needs a value: TIME"},
      {{"scan", "--for", "soon"}, "--for: \"soon\" is not a time such as 30s"},
      {{"scan", "--radio", "fm"}, "--radio: \"fm\" is none of bluez, sim"},
      {{"scan", "--adapter", "hci"}, "--adapter: \"hci\" is neither"},
      {{"scan", "--adapter", "eth0"}, "--adapter: \"eth0\" is neither"},
      {{"alert", "keys", "maybe"}, "STATE: \"maybe\" is none of on, off"},
      {{"delay", "keys", "7001"}, "N: \"7001\" is not a whole number from 0 to 7000"},
      {{"delay", "keys", "-1"}, "-1"},
      {{"distance", "keys", "away"}, "LEVEL: \"away\" is none of far, middle, near"},
      {{"--radio", "sim", "scan", "--seed", "-1"}, "--seed: \"-1\" is not a whole number"},
      {{"--radio", "sim", "scan", "--seed", "18446744073709551616"}, "is not a whole number"},
      {{"tag"}, "--adapter is required (see \"kvfob help tag\")"},
      {{"tag", "--adapter", "hci0", "--radio", "sim"}, "\"tag\" is of the machine's own radio"},
      {{"--radio", "sim", "doctor"}, "\"doctor\" is of the machine's own radio"},
      {{"demo", "--radio", "bluez"}, "\"demo\" has a simulated radio of its own"},
      {{"tag", "--adapter", "hci0", "--model", "256"}, "from 0 to 255"},
      {{"tag", "--adapter", "hci0", "--address", "here"}, "--address: \"here\" is not 12"},
      {{"--radio", "sim", "scan", "--adapter", "hci0"},
       "--adapter is of bluez, but the radio is sim ("},
      {{"scan", "--seed", "3"},
       "--seed is of the simulated radio, but the radio is bluez (default)"},
      {{"--timeout", "3", "scan"}, "--timeout does nothing with \"scan\""},
      {{"--config", "/dev/null", "decode", "x"}, "--config does nothing with \"decode\""},
      {{"list", "--json", "--names"}, "excludes"},
  };
  for (const auto& [arguments, message] : kCases) expectError(arguments, kUsage, message);
}

TEST_F(CommandLineTest, HelpOffersWhatActs) {
  EXPECT_EQ(printed({}), printed({"help"}));
  EXPECT_EQ(printed({"--help"}), printed({"help"}));
  EXPECT_EQ(printed({"ring", "-h"}), printed({"help", "ring"}));
  EXPECT_EQ(printed({"-V"}), "kvfob 1.1.0\n");
  EXPECT_EQ(printed({"--version"}), "kvfob 1.1.0\n");
  const struct {
    const char* command;
    const char* usage;
    std::vector<const char*> options;
    std::vector<const char*> others;
  } kCases[] = {
      {"demo",
       "kvfob demo [OPTIONS]\n",
       {"--seed", "--instant"},
       {"--radio", "--adapter", "--timeout"}},
      {"scan", "kvfob scan [OPTIONS]\n", {"--radio", "--seed", "--color"}, {"--timeout"}},
      {"ring",
       "kvfob ring [OPTIONS] [TAG...]\n",
       {"--radio", "--timeout", "--log"},
       {"--for", "--instant"}},
      {"rename", "kvfob rename [OPTIONS] TAG [NAME]\n", {"--radio"}, {"--adapter", "--seed"}},
      {"tag", "kvfob tag [OPTIONS]\n", {"--adapter", "--timeout"}, {"--radio", "--seed", "--log"}},
      {"decode", "kvfob decode [OPTIONS] FILE\n", {"--json"}, {"--radio", "--config", "--color"}},
  };
  for (const auto& [command, usage, options, others] : kCases) {
    const auto text = printed({"help", command});
    EXPECT_THAT(text, HasSubstr(std::string("Usage: ") + usage));
    EXPECT_THAT(text, HasSubstr(std::string("Examples:\n  ")));
    for (const char* option : options) EXPECT_THAT(text, HasSubstr(std::string("\n  ") + option));
    for (const char* option : others) {
      EXPECT_THAT(text, ::testing::Not(HasSubstr(std::string("\n  ") + option))) << command;
    }
  }
}

TEST_F(CommandLineTest, OptionBeatsEnvironmentBeatsFile) {
  const auto from = [](const Options& options, const std::string& name) {
    for (const auto& setting : options.settings) {
      if (setting.name == name) return setting.value + " " + setting.from;
    }
    return std::string();
  };
  auto config = std::get<Options>(parse({"config"}));
  EXPECT_EQ(from(config, "radio"), "bluez default");
  EXPECT_EQ(from(config, "timeout"), "30s default");
  EXPECT_EQ(from(config, "adapter"), " default");
  write("# mine\n\n radio = \"sim\"  # a remark\nadapter='hci1'\ntimeout=1.5m\r\nlog = \"all\"\n");
  setenv("KVFOB_TIMEOUT", "500ms", 1);
  setenv("KVFOB_LOG", "radio", 1);
  setenv("KVFOB_COLOR", "", 1);
  config = std::get<Options>(parse({"config", "--log", "off"}));
  EXPECT_EQ(from(config, "radio"), "sim file:" + file);
  EXPECT_EQ(from(config, "adapter"), "hci1 file:" + file);
  EXPECT_EQ(from(config, "timeout"), "500ms environment:KVFOB_TIMEOUT");
  EXPECT_EQ(from(config, "log"), "off option");
  EXPECT_EQ(from(config, "color"), "auto default");
  EXPECT_EQ(config.timeout, 500ms);
  EXPECT_EQ(config.log, LogLevel::Off);
  EXPECT_EQ(from(std::get<Options>(parse({"--log", "off", "config"})), "log"), "off option");

  const auto ring = std::get<Options>(parse({"ring", "keys"}));
  EXPECT_EQ(ring.radio, RadioKind::Sim) << "and the adapter is passed over";
  EXPECT_FALSE(ring.radioGiven);
  expectError({"ring", "keys", "--adapter", "hci0"}, kUsage, "the radio is sim (file:" + file);
  EXPECT_EQ(std::get<Options>(parse({"tag"})).adapter, "hci1");
  EXPECT_EQ(std::get<Options>(parse({"tag"})).radio, RadioKind::BlueZ);
  EXPECT_EQ(std::get<Options>(parse({"ring", "keys", "--config", "/dev/null"})).radio,
            RadioKind::BlueZ);

  setenv("KVFOB_RADIO", "fm", 1);
  expectError({"config"}, kBadInput, "KVFOB_RADIO: \"fm\" is none of bluez, sim");
  EXPECT_EQ(std::get<Options>(parse({"ring", "keys", "--radio", "sim"})).radio, RadioKind::Sim);
  EXPECT_EQ(std::get<Options>(parse({"demo"})).command, Command::Demo) << "which does not need it";
}

TEST_F(CommandLineTest, WrongConfigurationIsToldByItsLine) {
  const char* const kNoSetting = "a setting is a name, =, and a value such as \"sim\"";
  const std::pair<std::string, std::string> kCases[] = {
      {"adaptr = \"hci0\"", "there is no setting \"adaptr\"; did you mean \"adapter\"?"},
      {"seed = 3", "there is no setting \"seed\""},
      {"radio = \"fm\"", "radio: \"fm\" is none of bluez, sim"},
      {"timeout = 0", "timeout: \"0\" is not a time"},
      {"log", kNoSetting},
      {"log =", kNoSetting},
      {"log = \"\"", kNoSetting},
      {"log = \"all", kNoSetting},
      {"log = \"a\\u006cl\"", kNoSetting},
      {"log = all all", kNoSetting},
      {"log = \"all\" \"all\"", kNoSetting},
      {"[settings]", kNoSetting},
      {"color = \"auto\"", "color is set twice"},
  };
  for (const auto& [line, message] : kCases) {
    write("# mine\ncolor = never#\n" + line + "\nrubbish");
    expectError({"config"}, kBadInput, file + ", line 3: " + message);
    EXPECT_EQ(printed({"help"}).substr(0, 5), "Finds") << "whatever is wrong there";
  }
  write(std::string(65536, '\n'));
  EXPECT_EQ(parse({"config"}).index(), 0U);
  write(std::string(65537, '\n'));
  expectError({"config"}, kBadInput, "cannot read " + file + ": File too large");
  expectError({"config", "--config", "/nonexistent"}, kBadInput,
              "cannot read /nonexistent: No such");
  expectError({"config", "--config", "/"}, kBadInput, "cannot read /: Is a directory");
}

TEST_F(CommandLineTest, ConfigShowsWhatCountsAndWhy) {
  setenv("KVFOB_TIMEOUT", "1m", 1);
  const auto shown = runProgram({"config", "--adapter", "hci0"});
  EXPECT_EQ(shown.status, kDone);
  EXPECT_EQ(shown.out,
            "radio    bluez              default\n"
            "adapter  hci0               option\n"
            "timeout  60s                environment:KVFOB_TIMEOUT\n"
            "log      off                default\n"
            "color    auto               default\n");
  const auto json = runProgram({"config", "--json"});
  EXPECT_THAT(json.out,
              HasSubstr(R"({"event":"setting","name":"adapter","value":null,"from":"default"})"));
  EXPECT_THAT(json.out,
              HasSubstr(R"("name":"timeout","value":"60s","from":"environment:KVFOB_TIMEOUT"})"));
  EXPECT_THAT(
      json.out,
      ::testing::ContainsRegex(
          R"(\{"event":"result","command":"config","ok":true,"seconds":0\.[0-9]+,"error":null\})"
          "\n$"));
}

TEST(SuggestTest, NearWordsOnly) {
  const std::vector<std::string> words{"bind",  "ring",  "rename", "unbind",
                                       "watch", "--for", "--log"};
  const std::pair<const char*, const char*> kCases[] = {
      {"rign", "; did you mean \"ring\"?"},             // swapped
      {"rin", "; did you mean \"ring\" or \"bind\"?"},  // left out; the nearest first
      {"rinng", "; did you mean \"ring\"?"},
      {"unbnd", "; did you mean \"unbind\"?"},
      {"bing", "; did you mean \"bind\" or \"ring\"?"},
      {"wat", "; did you mean \"watch\"?"},  // begun
      {"wxyzh", ""},
      {"re", "; did you mean \"rename\"?"},
      {"r", ""},
      {"xy", ""},
      {"--fro", "; did you mean \"--for\"?"},
      {"-", ""},
      {"", ""},
  };
  for (const auto& [typed, text] : kCases) EXPECT_EQ(didYouMean(typed, words), text) << typed;
}

}  // namespace
}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/settings.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <variant>
#include <vector>

#include "apps/kvfob/base/text.h"
#include "apps/kvfob/cli/config_file.h"
#include "apps/kvfob/cli/words.h"

namespace kvfob {
namespace {

std::string takeAdapter(const std::string& text, Options& options) {
  if (auto address = parseAddress(text)) {
    // As BlueZ spells it.
    for (std::size_t at = 2; at < address->size(); at += 3) address->insert(at, ":");
    std::transform(address->begin(), address->end(), address->begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    options.adapter = *address;
    return {};
  }
  const bool named = text.starts_with("hci") && parseNumber(text.substr(3), 0, UINT16_MAX);
  if (!named) return "\"" + text + "\" is neither an adapter, such as hci0, nor its address";
  options.adapter = text;
  return {};
}

std::string takeTimeout(const std::string& text, Options& options) {
  const auto time = parseDuration(text);
  if (!time) return "\"" + text + "\" is not a time such as 30s, 1.5m or 500ms";
  options.timeout = *time;
  return {};
}

// Made when first asked for: the words are of another file.
const std::vector<Setting>& allSettings() {
  static const std::vector<Setting> kAll{
      {"radio", "KVFOB_RADIO", listOf(kRadios, "|"),
       "Which radio: that of the machine (bluez), or a simulated one", "Radio",
       [](const std::string& text, Options& options) {
         return takeWord(kRadios, text, options.radio);
       },
       [](const Options& options) { return wordOf(kRadios, options.radio); }},
      {"adapter", "KVFOB_ADAPTER", "NAME", "Which adapter of bluez: hci0, or its address", "Radio",
       takeAdapter, [](const Options& options) { return options.adapter; }},
      {"timeout", "KVFOB_TIMEOUT", "TIME", "How long it may take in all: 500ms, 30s, 1.5m (30s)",
       "", takeTimeout, [](const Options& options) { return durationText(options.timeout); }},
      {"log", "KVFOB_LOG", listOf(kLogLevels, "|"),
       "The library's lines on standard error: none (off), the radio's, or all", "Output",
       [](const std::string& text, Options& options) {
         return takeWord(kLogLevels, text, options.log);
       },
       [](const Options& options) { return wordOf(kLogLevels, options.log); }},
      {"color", "KVFOB_COLOR", listOf(kColors, "|"),
       "Colours: on a terminal unless NO_COLOR is set (auto), or as told", "Output",
       [](const std::string& text, Options& options) {
         return takeWord(kColors, text, options.color);
       },
       [](const Options& options) { return wordOf(kColors, options.color); }},
  };
  return kAll;
}

// What a source has to say about the settings.
std::optional<Outcome> takeOne(const Setting& setting, const SettingsWanted& wanted,
                               const std::vector<ConfigLine>& lines, Options& options) {
  const auto note = [&](const std::string& from) {
    options.settings.push_back({setting.name, setting.show(options), from});
  };
  if (wanted.given(setting.name)) {
    note("option");
    return std::nullopt;
  }
  const bool acts = wanted.acts(setting.name);
  const char* variable = std::getenv(setting.variable.c_str());
  if (acts && variable != nullptr && *variable != '\0') {
    const auto why = setting.take(variable, options);
    if (!why.empty()) return Outcome{kBadInput, setting.variable + ": " + why};
    note("environment:" + setting.variable);
    return std::nullopt;
  }
  const auto line = std::find_if(lines.begin(), lines.end(),
                                 [&](const auto& each) { return each.name == setting.name; });
  if (acts && line != lines.end()) {
    setting.take(line->value, options);
    note("file:" + line->file);
  } else {
    note("default");
  }
  return std::nullopt;
}

}  // namespace

std::span<const Setting> settings() { return allSettings(); }

const Setting& settingOf(std::string_view name) {
  const auto all = settings();
  return *std::find_if(all.begin(), all.end(),
                       [&](const auto& setting) { return setting.name == name; });
}

std::optional<Outcome> settle(const SettingsWanted& wanted, Options& options) {
  const auto read = readConfig(wanted.file);
  if (const auto* failure = std::get_if<Outcome>(&read)) return *failure;
  for (const auto& setting : settings()) {
    if (auto failure = takeOne(setting, wanted, std::get<std::vector<ConfigLine>>(read), options)) {
      return failure;
    }
  }
  return std::nullopt;
}

}  // namespace kvfob

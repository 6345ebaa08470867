// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/config_file.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string_view>

#include "apps/kvfob/cli/settings.h"
#include "apps/kvfob/cli/suggest.h"

namespace kvfob {
namespace {

constexpr std::size_t kSizeMost = std::size_t{64} * 1024;
constexpr std::string_view kBlanks = " \t\r";
constexpr std::string_view kBare =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._:-";

std::string defaultPath() {
  const auto variable = [](const char* name) {
    const char* value = std::getenv(name);
    return std::string(value != nullptr ? value : "");
  };
  auto folder = variable("XDG_CONFIG_HOME");
  // A relative one is to be ignored.
  if (!folder.starts_with('/')) folder = variable("HOME").append("/.config");
  return folder + "/kvfob/config.toml";
}

std::string_view trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// What stands between the quotation marks, or the bare word, at the front of `text`, which keeps
// what comes after it.
std::optional<std::string> takeValue(std::string_view& text) {
  const bool quoted = text.starts_with('"') || text.starts_with('\'');
  const auto begin = quoted ? std::size_t{1} : std::size_t{0};
  const auto end = quoted ? text.find(text.front(), 1) : text.find_first_not_of(kBare);
  if (quoted && end == std::string_view::npos) return std::nullopt;
  const auto size = std::min(end, text.size());
  auto value = std::string(text.substr(begin, size - begin));
  text.remove_prefix(quoted ? size + 1 : size);
  const bool escapes = quoted && value.find('\\') != std::string::npos;
  return value.empty() || escapes ? std::nullopt : std::optional(value);
}

// One line; it has no name where there is nothing on it. `why` tells what is wrong.
ConfigLine parseLine(std::string_view text, std::string& why) {
  text = trimmed(text);
  if (text.empty() || text.front() == '#') return {};
  const auto equals = text.find('=');
  ConfigLine line;
  line.name = trimmed(text.substr(0, equals));
  auto rest = trimmed(equals == std::string_view::npos ? "" : text.substr(equals + 1));
  const auto value = takeValue(rest);
  rest = trimmed(rest);
  if (!value || (!rest.empty() && rest.front() != '#')) {
    why = "a setting is a name, =, and a value such as \"sim\"";
    return line;
  }
  line.value = *value;
  std::vector<std::string> names;
  for (const auto& setting : settings()) names.push_back(setting.name);
  if (std::find(names.begin(), names.end(), line.name) == names.end()) {
    why = "there is no setting \"" + line.name + "\"" + didYouMean(line.name, names);
    return line;
  }
  Options scratch;
  why = settingOf(line.name).take(line.value, scratch);
  if (!why.empty()) why.insert(0, line.name + ": ");
  return line;
}

// The whole of it, or nothing; errno tells why.
std::optional<std::string> contentOf(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string text;
  std::array<char, 4096> piece{};
  ssize_t count = 1;
  while (count > 0 && text.size() <= kSizeMost) {
    count = read(fd, piece.data(), piece.size());
    if (count > 0) text.append(piece.data(), static_cast<std::size_t>(count));
  }
  const int error = text.size() > kSizeMost ? EFBIG : errno;
  close(fd);
  errno = error;
  return count < 0 || text.size() > kSizeMost ? std::nullopt : std::optional(text);
}

}  // namespace

std::variant<std::vector<ConfigLine>, Outcome> readConfig(const std::string& path) {
  const auto file = path.empty() ? defaultPath() : path;
  std::vector<ConfigLine> lines;
  const auto content = contentOf(file);
  if (!content && path.empty() && (errno == ENOENT || errno == ENOTDIR)) return lines;
  if (!content) return Outcome{kBadInput, "cannot read " + file + ": " + strerror(errno)};
  std::istringstream in(*content);
  std::string text;
  for (int number = 1; std::getline(in, text); ++number) {
    std::string why;
    auto line = parseLine(text, why);
    const bool twice = std::any_of(lines.begin(), lines.end(),
                                   [&](const auto& other) { return other.name == line.name; });
    if (why.empty() && twice) why = line.name + " is set twice";
    if (!why.empty()) {
      why.insert(0, file + ", line " + std::to_string(number) + ": ");
      return Outcome{kBadInput, why};
    }
    if (line.name.empty()) continue;
    line.file = file;
    lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/config_file.h"

#include <fcntl.h>
#include <string.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>

#include "apps/kvfob/base/utf8.h"
#include "apps/kvfob/cli/settings.h"
#include "apps/kvfob/cli/suggest.h"

namespace kvfob {
namespace {

constexpr std::size_t kSizeMost = std::size_t{64} * 1024;

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

// What is wrong with a line, if anything.
std::optional<std::string> wrongLine(const ConfigLine& line) {
  std::vector<std::string> names;
  for (const auto& setting : settings()) names.push_back(setting.name);
  if (std::find(names.begin(), names.end(), line.name) == names.end()) {
    return "there is no setting \"" + line.name + "\"" + didYouMean(line.name, names);
  }
  Options scratch;
  const auto why = settingOf(line.name).take(line.value, scratch);
  return why.empty() ? std::nullopt : std::optional(line.name + ": " + why);
}

// The value as it would be typed; a number serves for a time. Empty for anything else.
std::string textOf(const toml::node& node) {
  if (const auto* text = node.as_string()) return text->get();
  const auto* number = node.as_integer();
  return number != nullptr ? std::to_string(number->get()) : std::string();
}

Outcome wrongAt(const std::string& file, std::uint32_t line, const std::string& why) {
  return {kBadInput, file + ", line " + std::to_string(line) + ": " + why};
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
  try {
    for (const auto& [key, node] : toml::parse(*content)) {
      ConfigLine line{.file = file, .name = std::string(key.str()), .value = textOf(node)};
      if (const auto why = wrongLine(line)) return wrongAt(file, key.source().begin.line, *why);
      lines.push_back(std::move(line));
    }
  } catch (const toml::parse_error& error) {
    return wrongAt(file, error.source().begin.line, plainText(error.description()));
  }
  return lines;
}

}  // namespace kvfob

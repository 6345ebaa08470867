// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/radio/daemon_age.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace kvfob {
namespace {

// When a process began, in ticks since the machine did; absent unless it is the one. proc(5): the
// second field is its name in parentheses, the 22nd is when it began.
std::optional<double> beginOf(const std::filesystem::path& process) {
  if (process.filename().string().find_first_not_of("0123456789") != std::string::npos) return {};
  std::ifstream file(process / "stat");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const auto open = text.find('(');
  const auto close = text.rfind(')');
  if (open == std::string::npos || close == std::string::npos) return std::nullopt;
  if (text.substr(open + 1, close - open - 1) != "bluetoothd") return std::nullopt;
  std::istringstream rest(text.substr(close + 1));
  std::string field;
  for (int number = 3; number < 22; ++number) rest >> field;
  double begin = 0;
  if (!(rest >> begin)) return std::nullopt;
  return begin;
}

}  // namespace

std::optional<std::chrono::milliseconds> daemonAge(const std::string& proc) {
  double uptime = 0;
  std::ifstream(proc + "/uptime") >> uptime;
  std::optional<double> begin;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(proc, error)) {
    const auto found = beginOf(entry.path());
    if (found && found.value() > begin.value_or(0)) begin = found;
  }
  if (!begin) return std::nullopt;
  const auto seconds = uptime - *begin / static_cast<double>(sysconf(_SC_CLK_TCK));
  return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

}  // namespace kvfob

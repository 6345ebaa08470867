#include "apps/kvfob/console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace kvfob {
namespace {

std::string_view escape(Style style) {
  switch (style) {
    case Style::bold:
      return "\033[1m";
    case Style::dim:
      return "\033[2m";
    case Style::good:
      return "\033[32m";
    case Style::bad:
      return "\033[31m";
    case Style::accent:
      return "\033[36m";
    case Style::plain:
      break;
  }
  return {};
}

bool wantsColor(ColorMode mode, bool terminal) {
  if (mode != ColorMode::automatic) return mode == ColorMode::always;
  const char* no = std::getenv("NO_COLOR");
  const char* term = std::getenv("TERM");
  return terminal && (no == nullptr || *no == '\0') &&
         (term == nullptr || std::string_view(term) != "dumb");
}

}  // namespace

Console Console::standard(ColorMode mode) {
  const bool terminal = isatty(STDOUT_FILENO) == 1;
  return {std::cout, std::cerr, wantsColor(mode, terminal), terminal};
}

std::string Console::styled(Style style, std::string_view text) const {
  if (!color_ || style == Style::plain) return std::string(text);
  return std::string(escape(style)).append(text).append("\033[0m");
}

void Console::line(std::string_view text) {
  drawn_ = 0;
  out_ << text << '\n' << std::flush;
}

void Console::block(std::string_view lines) {
  drawn_ = 0;
  out_ << lines << std::flush;
}

void Console::redraw(std::string_view lines) {
  if (drawn_ > 0) out_ << "\033[" << drawn_ << "A\033[J";
  out_ << lines << std::flush;
  drawn_ = static_cast<std::size_t>(std::count(lines.begin(), lines.end(), '\n'));
}

std::size_t Console::height() {
  winsize size{};
  constexpr std::size_t kSmall = 24;
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row < 3) return kSmall - 1;
  return size.ws_row - 1U;
}

void Console::note(std::string_view text) { err_ << "kvfob: " << text << '\n' << std::flush; }

}  // namespace kvfob

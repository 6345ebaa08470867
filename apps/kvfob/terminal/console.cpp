// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/console.h"

#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>

namespace kvfob {
namespace {

std::string_view escape(Style style) {
  switch (style) {
    case Style::Bold:
      return "\033[1m";
    case Style::Dim:
      return "\033[2m";
    case Style::Good:
      return "\033[32m";
    case Style::Warn:
      return "\033[33m";
    case Style::Bad:
      return "\033[31m";
    case Style::Accent:
      return "\033[36m";
    case Style::Title:
      return "\033[7m";
    case Style::Plain:
      break;
  }
  return {};
}

bool wantsColor(ColorMode mode, bool live) {
  if (mode != ColorMode::Automatic) return mode == ColorMode::Always;
  const char* no = std::getenv("NO_COLOR");
  return live && (no == nullptr || *no == '\0');
}

}  // namespace

std::string paint(Style style, std::string_view text) {
  if (style == Style::Plain) return std::string(text);
  return std::string(escape(style)).append(text).append("\033[0m");
}

Console Console::standard(ColorMode mode) {
  const char* term = std::getenv("TERM");
  const bool moves = term == nullptr || std::string_view(term) != "dumb";
  const bool live = isatty(STDOUT_FILENO) == 1 && moves;
  return {std::cout, std::cerr, wantsColor(mode, live), live, isatty(STDERR_FILENO) == 1 && moves};
}

std::string Console::styled(Style style, std::string_view text) const {
  return color_ ? paint(style, text) : std::string(text);
}

void Console::line(std::string_view text) { block(std::string(text).append("\n")); }

void Console::block(std::string_view lines) {
  status({});
  errno = 0;
  if (!(out_ << lines << std::flush) && error_ == 0) error_ = errno != 0 ? errno : EIO;
}

Outcome Console::outputLost() const {
  if (error_ == EPIPE) return {kSignal + SIGPIPE, ""};
  return {kInternal, std::string("cannot write the output: ") + strerror(error_)};
}

void Console::note(std::string_view text) {
  if (taker_) return taker_(text);
  status({});
  err_ << "kvfob: " << text << '\n' << std::flush;
}

void Console::status(std::string_view text) {
  if (!status_ || (text.empty() && !statusShown_)) return;
  err_ << '\r' << text << "\033[K" << std::flush;
  statusShown_ = !text.empty();
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/screen.h"

#include <fcntl.h>
#include <langinfo.h>
#include <locale.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <string_view>
#include <utility>

#include "apps/kvfob/terminal/loop.h"

namespace kvfob {
namespace {

// Alternate screen, no cursor, no wrapping at the right edge; and back, with plain colours.
constexpr std::string_view kEnter = "\033[?1049h\033[?25l\033[?7l\033[2J";
constexpr std::string_view kLeave = "\033[0m\033[?1006l\033[?1000l\033[?7h\033[?25h\033[?1049l";
// Clicks and the wheel, told in digits.
constexpr std::string_view kMouse = "\033[?1000h\033[?1006h";

// The bytes of one key come together; over a slow line a little apart.
constexpr std::chrono::milliseconds kKeyPatience{50};

// What ends the process without unwinding.
constexpr std::array<int, 6> kFatal{SIGQUIT, SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};

// What has to be given back. A signal handler reads it, so it is plain and process-wide.
struct Taken {
  volatile std::sig_atomic_t screen = 0;
  bool mouse = false;
  int keys = -1;
  termios modes{};
  std::array<struct sigaction, kFatal.size()> handlers{};
};
Taken taken;

void writeAll(std::string_view text) {
  while (!text.empty()) {
    const auto count = write(STDOUT_FILENO, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;  // a terminal that has gone shows nothing
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

void onFatal(int number) {
  Screen::giveBack();
  for (std::size_t i = 0; i < kFatal.size(); ++i) {
    if (kFatal[i] == number) sigaction(number, &taken.handlers[i], nullptr);
  }
  std::raise(number);
}

void guardAgainstFatal() {
  struct sigaction action {};
  action.sa_handler = onFatal;
  for (std::size_t i = 0; i < kFatal.size(); ++i) {
    sigaction(kFatal[i], &action, &taken.handlers[i]);
  }
}

void closeKeys() {
  if (taken.keys >= 0) close(std::exchange(taken.keys, -1));
}

// Once more after a stop: meanwhile a shell has set its own modes.
void take() {
  if (taken.screen == 0 && taken.keys >= 0 && tcgetattr(taken.keys, &taken.modes) != 0) closeKeys();
  if (taken.keys >= 0) {
    auto modes = taken.modes;
    modes.c_iflag &= ~static_cast<tcflag_t>(IXON);
    modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
    modes.c_cc[VMIN] = 0;
    modes.c_cc[VTIME] = 0;
    tcsetattr(taken.keys, TCSANOW, &modes);
  }
  taken.screen = 1;
  writeAll(kEnter);
  if (taken.mouse) writeAll(kMouse);
}

bool speaksUtf8() {
  const locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr);
  if (locale == nullptr) return false;
  const bool utf8 = std::string_view(nl_langinfo_l(CODESET, locale)) == "UTF-8";
  freelocale(locale);
  return utf8;
}

}  // namespace

std::string difference(const std::vector<std::string>& shown,
                       const std::vector<std::string>& lines) {
  std::string frame;
  for (std::size_t row = 0; row < lines.size(); ++row) {
    if (row < shown.size() && shown[row] == lines[row]) continue;
    frame += "\033[" + std::to_string(row + 1) + ";1H\033[2K" + lines[row];
  }
  return frame;
}

Screen::Screen(Loop& loop, std::function<void(const Key&)> key, std::function<void()> redraw)
    : loop_(loop),
      below_(loop.screen()),
      key_(std::move(key)),
      redraw_(std::move(redraw)),
      unicode_(speaksUtf8()) {
  if (below_ == nullptr) {
    // Standard input may be where the password came from.
    taken.keys = open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    guardAgainstFatal();
    take();
  }
  loop_.attach(this);
}

Screen::~Screen() {
  loop_.attach(below_);
  if (below_ != nullptr) {
    below_->shown_.clear();
    return;
  }
  giveBack();
  for (std::size_t i = 0; i < kFatal.size(); ++i) {
    sigaction(kFatal[i], &taken.handlers[i], nullptr);
  }
  closeKeys();
  taken.mouse = false;
}

void Screen::giveBack() {
  if (taken.screen == 0) return;
  taken.screen = 0;
  writeAll(kLeave);
  if (taken.keys < 0) return;
  tcsetattr(taken.keys, TCSANOW, &taken.modes);
  tcflush(taken.keys, TCIFLUSH);  // what was typed for the view is not for the shell
}

Look Screen::look(bool color) const {
  Look look;
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0) {
    look.width = size.ws_col;
    look.height = size.ws_row;
  }
  look.color = color;
  look.unicode = unicode_;
  return look;
}

void Screen::show(const std::vector<std::string>& lines) {
  const auto frame = difference(shown_, lines);
  shown_ = lines;
  // Where a terminal can, it shows all of it at once.
  if (!frame.empty()) writeAll("\033[?2026h" + frame + "\033[?2026l");
}

void Screen::takeMouse() {
  taken.mouse = true;
  writeAll(kMouse);
}

int Screen::fd() const { return taken.keys; }

void Screen::readKeys() {
  std::array<char, 256> bytes{};
  const auto count = read(taken.keys, bytes.data(), bytes.size());
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (count <= 0) return closeKeys();  // the terminal has gone
  ++reads_;
  const auto keys = reader_.take({bytes.data(), static_cast<std::size_t>(count)});
  if (reader_.waits()) {
    loop_.queue().postAfter(kKeyPatience, [this, reads = reads_, alive = std::weak_ptr(alive_)] {
      if (!alive.expired() && reads == reads_) press(reader_.giveUp());
    });
  }
  press(keys);
}

void Screen::press(const std::vector<Key>& keys) {
  const std::weak_ptr alive(alive_);
  for (const auto& key : keys) {
    if (alive.expired()) return;  // the key before was the last for this screen
    key_(key);
  }
}

void Screen::suspend() { giveBack(); }

void Screen::resume() {
  shown_.clear();
  if (below_ != nullptr) below_->shown_.clear();
  take();
  redraw_();
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/commands/air_run.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace kvfob {
namespace {

using namespace std::chrono_literals;
using kvsim::TagEventKind;

// How long the adapter may take to be found at the start, and then bluetoothd to take the tag.
// Later either may be gone for as long as it likes.
constexpr std::chrono::milliseconds kPatience = 3s;
constexpr std::chrono::milliseconds kRegistering = 20s;
constexpr std::size_t kLineMost = 200;

kvsim::AirTagOptions airOptions(const Options& options, const Secret& password) {
  kvsim::AirTagOptions air;
  air.adapter = options.adapter;
  air.tag.address = options.address;
  air.tag.model = static_cast<std::uint8_t>(options.model);
  air.tag.battery = static_cast<std::uint8_t>(options.battery);
  if (!password.text().empty()) air.tag.password = password.text();
  return air;
}

}  // namespace

AirRun::AirRun(std::shared_ptr<KVLinuxEventQueue> queue, Loop& loop, Console& console,
               const Options& options, const Secret& password)
    : queue_(std::move(queue)),
      loop_(loop),
      console_(console),
      patience_(options.timeout),
      tag_(queue_, airOptions(options, password)),
      input_(queue_->watch(STDIN_FILENO, POLLIN, [this](short) { readInput(); })) {
  tag_.setStateCallback(
      [this](kvsim::AirState state, const std::string& reason) { stateChanged(state, reason); });
  tag_.setObserver([this](const kvsim::TagEvent& event) { tagEvent(event); });
}

Outcome AirRun::run() {
  const auto ended = [this] { return quit_ || loop_.signal() != 0 || !console_.good(); };
  const auto decided = [&] { return ended() || everOnAir_; };
  // The tag's state is there before it is reported, so a reason alone is no refusal.
  const auto refused = [this] {
    return tag_.state() == kvsim::AirState::Waiting && !tag_.reason().empty();
  };
  if (!loop_.runUntil(decided, std::min(patience_, kPatience)) && !refused()) {
    loop_.runUntil([&] { return decided() || refused(); }, kRegistering);
  }
  if (!ended() && !everOnAir_) {
    const auto& reason = tag_.reason();
    return {kNoAdapter, reason.empty() ? "the Bluetooth service does not answer" : reason};
  }
  loop_.runUntil(ended);
  return loop_.signal() != 0 ? Outcome{kSignal + loop_.signal(), ""} : Outcome();
}

void AirRun::stateChanged(kvsim::AirState state, const std::string& reason) {
  if (state == kvsim::AirState::OnAir) {
    console_.line("ready: " + reason);
    if (!std::exchange(everOnAir_, true) && isatty(STDIN_FILENO) == 1) {
      console_.note("type press, battery N (0 to 255) or quit, or just p, b N or q");
    }
  } else if (everOnAir_) {
    console_.line("waiting: " + reason);
  }
}

void AirRun::tagEvent(const kvsim::TagEvent& event) {
  switch (event.kind) {
    case TagEventKind::Connected:
      return console_.line("connected");
    case TagEventKind::Disconnected:
      return console_.line("disconnected");
    case TagEventKind::PasswordAccepted:
      return console_.line("bound");
    case TagEventKind::PasswordRejected:
      return console_.line("wrong password");
    case TagEventKind::CommandReceived:
    case TagEventKind::CommandRefused:
    case TagEventKind::TokenRejected:
    case TagEventKind::FrameRejected:
    case TagEventKind::DistanceWritten:
      return console_.line(event.text);
    default:
      return;
  }
}

void AirRun::readInput() {
  std::array<char, 256> bytes{};
  const auto count = read(STDIN_FILENO, bytes.data(), bytes.size());
  if (count <= 0) {
    // Nobody types any more; the tag stays on the air.
    input_.reset();
    return;
  }
  typed_.append(bytes.data(), static_cast<std::size_t>(count));
  for (auto end = typed_.find('\n'); end != std::string::npos; end = typed_.find('\n')) {
    execute(typed_.substr(0, end));
    typed_.erase(0, end + 1);
  }
  if (typed_.size() > kLineMost) typed_.clear();
}

void AirRun::execute(const std::string& line) {
  if (line.empty()) return;
  const std::string_view word = std::string_view(line).substr(0, line.find(' '));
  if (line == "quit" || line == "q") {
    quit_ = true;
    return;
  }
  if (line == "press" || line == "p") {
    tag_.pressButton();
    return;
  }
  if ((word == "battery" || word == "b") && word.size() < line.size()) {
    unsigned value = 0;
    const auto* end = line.data() + line.size();
    const auto result = std::from_chars(line.data() + word.size() + 1, end, value);
    if (result.ec == std::errc() && result.ptr == end && value <= UINT8_MAX) {
      tag_.setBattery(static_cast<std::uint8_t>(value));
      return;
    }
  }
  console_.note("\"" + line + "\" is not press, battery N (0 to 255) or quit, nor p, b N or q");
}

}  // namespace kvfob

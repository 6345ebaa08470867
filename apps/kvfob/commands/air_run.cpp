// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/commands/air_run.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <utility>

#include "apps/kvfob/base/text.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;
using kvsim::TagEventKind;

// The Bluetooth service may just be starting; after so long the user wants to know.
constexpr std::chrono::milliseconds kHint = 2s;
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
      json_(options.json),
      tag_(queue_, airOptions(options, password)),
      input_(queue_->watch(STDIN_FILENO, POLLIN, [this](short) { readInput(); })) {
  tag_.setStateCallback(
      [this](kvsim::AirState state, const std::string& reason) { stateChanged(state, reason); });
  tag_.setObserver([this](const kvsim::TagEvent& event) { tagEvent(event); });
}

bool AirRun::ended() const { return quit_ || loop_.signal() != 0 || !console_.good(); }

// Once on the air, the adapter and the service may be gone for as long as they like. Before, only
// time tells what will come of it: whatever the state is, it may be about to change.
Outcome AirRun::run() {
  const auto decided = [this] { return ended() || everOnAir_; };
  const auto first = std::min(patience_, kHint);
  if (!loop_.runUntil(decided, first)) {
    hinted_ = true;
    if (patience_ > first) stateChanged(tag_.state(), tag_.reason());
    loop_.runUntil(decided, patience_ - first);
  }
  if (!decided()) {
    const auto& reason = tag_.reason();
    return {kNoAdapter, reason.empty() ? "the Bluetooth service does not answer" : reason};
  }
  loop_.runUntil([this] { return ended(); });
  return loop_.signal() != 0 ? Outcome{kSignal + loop_.signal(), ""} : Outcome();
}

// One thing that happened, for people or for scripts.
void AirRun::say(const char* event, const std::string& text, const Json& facts) {
  if (!json_) return console_.line(text);
  Json line{{"event", event}, {"time", isoTime(std::chrono::system_clock::now())}};
  line.update(facts);
  console_.line(jsonLine(line));
}

void AirRun::stateChanged(kvsim::AirState state, const std::string& reason) {
  if (state == kvsim::AirState::OnAir) {
    say("ready", "ready: " + reason, {{"address", tag_.tag()->address()}});
    if (!std::exchange(everOnAir_, true) && isatty(STDIN_FILENO) == 1) {
      console_.note("type press, battery N (0 to 255) or quit, or just p, b N or q");
    }
  } else if (everOnAir_) {
    say("waiting", "waiting: " + reason, {{"reason", reason}});
  } else if (hinted_) {
    console_.note("waiting: " + (reason.empty() ? "for the Bluetooth service" : reason));
  }
}

void AirRun::tagEvent(const kvsim::TagEvent& event) {
  const auto tell = [&](const char* name) { say(name, event.text, {{"text", event.text}}); };
  switch (event.kind) {
    case TagEventKind::Connected:
      return say("connected", "connected");
    case TagEventKind::Disconnected:
      return say("disconnected", "disconnected");
    case TagEventKind::PasswordAccepted:
      return say("bound", "bound");
    case TagEventKind::PasswordRejected:
      return say("wrong-password", "wrong password");
    case TagEventKind::CommandReceived:
    case TagEventKind::DistanceWritten:
      return tell("command");
    case TagEventKind::CommandRefused:
      return tell("command-refused");
    case TagEventKind::TokenRejected:
    case TagEventKind::FrameRejected:
      return tell("not-understood");
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

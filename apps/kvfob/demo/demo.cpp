// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/demo/demo.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>
#include <utility>

#include "apps/kvfob/base/text.h"

namespace kvfob {
namespace {

using kvsim::TagEventKind;

// So that a reader can keep up.
constexpr std::chrono::milliseconds kPause{600};
constexpr std::string_view kIndent = "       ";

bool fromTag(TagEventKind kind) {
  return kind == TagEventKind::OpeningSent || kind == TagEventKind::AnswerSent ||
         kind == TagEventKind::RawSent;
}

bool isCommandFrame(const kvsim::TagEvent& event) {
  return event.plain.size() == 16 &&
         (event.kind == TagEventKind::CommandReceived ||
          event.kind == TagEventKind::CommandRefused || event.kind == TagEventKind::AnswerSent);
}

// What a frame says, without its random fill; a password is never shown.
std::string decoded(const kvsim::TagEvent& event) {
  if (event.kind == TagEventKind::DistanceWritten) return "not encrypted";
  if (!isCommandFrame(event)) return "";
  const std::size_t used = std::min<std::size_t>(2U + event.plain[1], event.plain.size());
  return hex(std::span(event.plain).first(used), /*spaced=*/true) + " + " +
         std::to_string(event.plain.size() - used) + " random";
}

}  // namespace

Demo::Demo(kvsim::SimulatedRadio& radio, Loop* loop, Console& console)
    : radio_(radio),
      loop_(loop),
      console_(console),
      tag_(radio.addTag({.address = "c0ffee123456", .battery = 87, .password = {}})),
      manager_(std::make_shared<KVTrackerManager>()) {
  tag_->setObserver([this](const kvsim::TagEvent& event) { show(event); });
}

Demo::~Demo() { tag_->setObserver({}); }

Outcome Demo::run() {
  static constexpr std::array<Step, 13> kSteps{{
      {"Scan", "The tag tells its address, battery and model in every advertisement.", &Demo::scan},
      {"Near and far", "The signal strength tells roughly how far away it is.", &Demo::levels},
      {"Refused password", "A tag that is bound takes only the password it was bound with.",
       &Demo::refusedPassword},
      {"Bind", "Both sides make a key for this link; then the tag takes the password for good.",
       &Demo::bind},
      {"Ring", "The command goes out encrypted, and the tag answers.", &Demo::ring},
      {"Silence", "The same command; the bytes on the air differ each time.", &Demo::silence},
      {"Loss alert", "The tag is to cry when it loses the phone.", &Demo::alert},
      {"Loss delay", "How long it waits before it does.", &Demo::delay},
      {"Loss distance", "How far away counts as lost: one plain byte.", &Demo::distance},
      {"Live signal", "While connected, the link's signal is read every 3 seconds.",
       &Demo::liveRssi},
      {"Button", "The tag speaks up on its own.", &Demo::button},
      {"Drop and reconnect", "A bound tag is connected again by itself, with a new key.",
       &Demo::reconnect},
      {"Unbind", "The tag forgets the password, and is free for anyone.", &Demo::unbind},
  }};
  Outcome outcome;
  unsigned number = 0;
  for (const auto& step : kSteps) {
    if (!runStep(++number, step, outcome)) return outcome;
  }
  console_.line();
  console_.line(console_.styled(Style::Good, "All " + std::to_string(kSteps.size()) +
                                                 " steps did what they should, by the tag's own "
                                                 "account."));
  return outcome;
}

bool Demo::runStep(unsigned number, const Step& step, Outcome& outcome) {
  console_.line();
  std::array<char, 8> label{};
  std::snprintf(label.data(), label.size(), "%2u. ", number);
  console_.line(console_.styled(Style::Bold, std::string(label.data()) + step.title) + "  " +
                console_.styled(Style::Dim, step.meaning));
  const auto wrong = (this->*step.go)();
  wait([] { return false; }, kPause);
  if (loop_ != nullptr && loop_->signal() != 0) {
    outcome = {kSignal + loop_->signal(), ""};
    return false;
  }
  if (wrong.empty()) {
    show(console_.styled(Style::Good, "ok"));
    return true;
  }
  show(console_.styled(Style::Bad, "failed: " + wrong));
  outcome = {kInternal,
             "demo: step " + std::to_string(number) + " (" + step.title + ") failed: " + wrong};
  return false;
}

bool Demo::wait(const std::function<bool()>& condition, Millis most) {
  if (loop_ == nullptr) return radio_.clock().runUntil(condition, most);
  const auto ended = [&] { return loop_->signal() != 0 || condition(); };
  return loop_->runUntil(ended, most) && loop_->signal() == 0;
}

std::string Demo::ask(const std::function<void(KVResultCallback)>& command) {
  struct Answer {
    bool come = false;
    std::string wrong = {};
  };
  // The callback stays in the tracker's slot.
  const auto answer = std::make_shared<Answer>();
  command([answer](bool success, const std::optional<KVError>& error) {
    answer->come = true;
    if (!success) answer->wrong = error ? error->domain : "refused";
  });
  if (!wait([&] { return answer->come; })) return "no answer";
  return answer->wrong;
}

void Demo::show(const kvsim::TagEvent& event) {
  if (event.wire.empty()) return show(console_.styled(Style::Dim, event.text));
  std::array<char, 200> line{};
  std::snprintf(line.data(), line.size(), "%-32s", hex(event.wire).c_str());
  const auto way = fromTag(event.kind) ? "tag > phone  " : "phone > tag  ";
  const auto meaning = decoded(event);
  show(console_.styled(Style::Accent, way) + line.data() + "  " + event.text +
       (meaning.empty() ? "" : console_.styled(Style::Dim, "  [" + meaning + "]")));
}

void Demo::show(const std::string& line) { console_.line(std::string(kIndent) + line); }

}  // namespace kvfob

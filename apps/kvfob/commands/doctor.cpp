// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/commands/doctor.h"

#include <algorithm>
#include <string>
#include <vector>

#include "KVFobLink/KVLinuxDiagnosis.h"
#include "apps/kvfob/commands/reported.h"
#include "apps/kvfob/terminal/loop.h"

namespace kvfob {
namespace {

struct Mark {
  Style style;
  const char* text;
  const char* word;
};

Mark markOf(KVVerdict verdict) {
  switch (verdict) {
    case KVVerdict::Ok:
      return {Style::Good, "ok     ", "ok"};
    case KVVerdict::Hint:
      return {Style::Accent, "note   ", "note"};
    case KVVerdict::Unusable:
      break;
  }
  return {Style::Bad, "PROBLEM", "problem"};
}

void print(const KVFinding& finding, Console& console) {
  constexpr std::size_t kTopicWidth = 10;
  auto topic = finding.topic;
  topic.resize(std::max(topic.size(), kTopicWidth), ' ');
  const auto mark = markOf(finding.verdict);
  console.line(console.styled(mark.style, mark.text) + "  " + topic + "  " + finding.seen);
  if (!finding.advice.empty()) {
    console.line(std::string(kTopicWidth + 11, ' ') + "-> " + finding.advice);
  }
}

void printJson(const KVFinding& finding, Console& console) {
  console.line(jsonLine({{"event", "finding"},
                         {"topic", finding.topic},
                         {"verdict", markOf(finding.verdict).word},
                         {"seen", finding.seen},
                         {"advice", finding.advice.empty() ? Json() : Json(finding.advice)}}));
}

Outcome diagnose(const Options& options, const SignalFd& signals, Console& console) {
  const auto queue = KVLinuxPlatform::makeEventQueue();
  Loop loop(queue, signals);
  KVBlueZOptions bluez;
  bluez.adapter = options.adapter;
  bool done = false;
  std::string problem;
  const auto diagnosis =
      KVLinuxDiagnosis::start(queue, bluez, [&](const std::vector<KVFinding>& findings) {
        done = true;
        for (const auto& finding : findings) {
          options.json ? printJson(finding, console) : print(finding, console);
          if (finding.verdict == KVVerdict::Unusable) problem = finding.seen;
        }
      });
  loop.runUntil([&] { return done || loop.signal() != 0; });
  if (!done) return {kSignal + loop.signal(), ""};
  if (!problem.empty()) return {kNoAdapter, "Bluetooth cannot be used: " + problem};
  return {};
}

}  // namespace

Outcome runDoctor(const Options& options, const SignalFd& signals, Console& console) {
  return reported("doctor", {{"adapter", options.adapter.empty() ? Json() : Json(options.adapter)}},
                  options, console, [&] { return diagnose(options, signals, console); });
}

}  // namespace kvfob

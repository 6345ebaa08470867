// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/watch/sent_commands.h"

#include <utility>

namespace kvfob {
namespace {

using namespace std::chrono_literals;

constexpr SentCommands::Time kPatience = 5s;

std::string took(SentCommands::Time time) {
  if (time < 1s) return std::to_string(time.count()) + " ms";
  const auto tenths = time.count() / 100;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
}

}  // namespace

bool SentCommands::waits(CommandKind kind) const {
  const auto& sent = sent_[static_cast<std::size_t>(kind)];
  return sent && !sent->overdue;
}

std::string SentCommands::sent(CommandKind kind, const std::string& what, Time now) {
  of(kind) = Sent{.what = what, .at = now};
  return "→ " + what + ": sent";
}

std::string SentCommands::answered(CommandKind kind, const std::optional<std::string>& refusal,
                                   Time now) {
  const auto sent = std::exchange(of(kind), std::nullopt);
  if (!sent) return "← an answer once more";
  const auto after = " after " + took(now - sent->at);
  return "← " + sent->what +
         (refusal ? ": refused" + after + ": " + *refusal : ": answered" + after);
}

std::vector<std::string> SentCommands::overdue(Time now) {
  std::vector<std::string> texts;
  for (auto& sent : sent_) {
    if (!sent || sent->overdue || now - sent->at < kPatience) continue;
    sent->overdue = true;
    texts.push_back("  " + sent->what + ": no answer for " + took(kPatience));
  }
  return texts;
}

std::vector<std::string> SentCommands::lost() {
  std::vector<std::string> texts;
  for (auto& sent : sent_) {
    if (!sent) continue;
    if (!sent->overdue) texts.push_back("  " + sent->what + ": no answer, as the link was lost");
    sent.reset();
  }
  return texts;
}

}  // namespace kvfob

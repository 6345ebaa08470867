// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/commands/on_tags.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

#include "apps/kvfob/base/json.h"
#include "apps/kvfob/base/result.h"
#include "apps/kvfob/base/text.h"
#include "apps/kvfob/book/bindings.h"
#include "apps/kvfob/commands/tag_run.h"
#include "apps/kvfob/commands/targets.h"
#include "apps/kvfob/radio/radio.h"
#include "apps/kvfob/radio/session.h"
#include "apps/kvfob/terminal/password.h"

namespace kvfob {
namespace {

using Clock = std::chrono::steady_clock;

// What the command has achieved, once the tag has said yes.
std::string achieved(const Options& options) {
  switch (options.command) {
    case Command::Bind:
      return "bound";
    case Command::Ring:
      return "ringing";
    case Command::Silence:
      return "silent";
    case Command::Alert:
      return std::string("loss alert ") + (options.on ? "on" : "off");
    case Command::Delay:
      return "loss delay " + std::to_string(options.delay);
    case Command::Distance:
      return "loss distance " + std::string(levelName(options.level));
    case Command::Unbind:
      return "unbound";
    default:
      return "done";
  }
}

class OnTags {
 public:
  OnTags(const Options& options, const Book& book, Console& console)
      : options_(options), console_(console), targets_(targetsOf(options, book)) {}

  // Whether the command may be carried out, as far as can be told before anything is sent.
  Outcome prepare();
  Outcome run(Links& links);

 private:
  Outcome readPasswordFile();
  Outcome runOne(Links& links, const Target& target);
  Outcome bind(Session& session, Options options, const Target& target);
  PasswordResult passwordFor(const Target& target) const;
  void report(const Target& target, const Outcome& outcome, Clock::duration took);

  const Options& options_;
  Console& console_;
  const std::vector<Target> targets_;
  std::optional<Secret> given_;  // from the password file
};

Outcome OnTags::prepare() {
  if (targets_.empty()) {
    return {kUnlisted, "no tag is bound on the radio " + std::string(radioName(options_.radio))};
  }
  for (const auto& target : targets_) {
    if (target.refused.code == kDone) continue;
    report(target, target.refused, {});
    return target.refused;
  }
  return readPasswordFile();
}

Outcome OnTags::readPasswordFile() {
  if (options_.passwordFile.empty()) return {};
  if (const auto warning = passwordFileWarning(options_.passwordFile)) console_.note(*warning);
  auto read = readPassword(options_.passwordFile);
  if (auto* failure = std::get_if<Outcome>(&read)) return std::move(*failure);
  given_ = std::move(std::get<Secret>(read));
  return {};
}

Outcome OnTags::run(Links& links) {
  Outcome first;
  std::size_t failed = 0;
  for (const auto& target : targets_) {
    const auto start = Clock::now();
    auto outcome = runOne(links, target);
    report(target, outcome, Clock::now() - start);
    if (outcome.code == kDone) continue;
    ++failed;
    if (targets_.size() == 1) return outcome;
    if (!outcome.message.empty()) console_.note(outcome.message);
    const bool hopeless = outcome.code == kNoAdapter || outcome.code > kSignal;
    if (first.code == kDone) first = std::move(outcome);
    if (hopeless || !console_.good()) break;
  }
  if (failed > 0) {
    first.message = std::to_string(failed) + " of " + std::to_string(targets_.size()) + " failed";
  }
  return first;
}

Outcome OnTags::runOne(Links& links, const Target& target) {
  auto options = options_;
  options.tag = target.address;
  // A tag that is bound anew is sent a password anew.
  if (options_.command == Command::Bind) links.drop(target.address);
  auto& session = links.to(target.address);
  if (options_.command == Command::Bind) return bind(session, std::move(options), target);
  const auto name = target.known == nullptr ? std::string() : target.known->name;
  auto outcome = TagRun(
                     session, options, [&] { return passwordFor(target); }, name)
                     .run();
  if (outcome.code == kDone && options_.command == Command::Unbind && target.known != nullptr) {
    return rememberUnbound(options_.radio, target.address);
  }
  return outcome;
}

Outcome OnTags::bind(Session& session, Options options, const Target& target) {
  bool begun = false;
  const auto password = [&]() -> PasswordResult {
    auto got = passwordFor(target);
    if (const auto* secret = std::get_if<Secret>(&got)) {
      auto outcome =
          beginBinding(options.radio, target.address, options.name, *secret, options.savePassword);
      if (outcome.code != kDone) return outcome;
      begun = true;
    }
    return got;
  };
  TagRun run(session, options, password, options.name);
  auto outcome = run.run();
  if (!begun) return outcome;
  const bool bound = outcome.code == kDone;
  // A tag that was asked and did not answer may have taken the password all the same.
  if (!bound && run.asked() && outcome.code != kRefused) {
    outcome.message +=
        (outcome.message.empty() ? "" : "; ") +
        std::string("it may be bound all the same: bind it again, with the same password");
    return outcome;
  }
  auto noted = endBinding(options.radio, target.address, bound);
  if (bound) return noted;
  if (noted.code != kDone) console_.note(noted.message);
  return outcome;
}

// The one that is given, or else the saved one, or else the user is asked.
PasswordResult OnTags::passwordFor(const Target& target) const {
  if (given_) return Secret(given_->text());
  if (target.known != nullptr && !target.known->password.text().empty()) {
    return Secret(target.known->password.text());
  }
  const auto prompt = "Password of " + target.label() + ": ";
  return askPassword(prompt, options_.command == Command::Bind ? "The same again: " : "");
}

void OnTags::report(const Target& target, const Outcome& outcome, Clock::duration took) {
  const bool done = outcome.code == kDone || outcome.code == kNotRemembered;
  if (!options_.json) {
    // What `watch` has seen is on the screen already.
    if (!done || options_.command == Command::Watch) return;
    return console_.line(target.address + ": " + achieved(options_));
  }
  const Json facts{{"tag", target.label()},
                   {"address", target.address.empty() ? Json() : Json(target.address)},
                   {"radio", radioName(options_.radio)}};
  console_.line(jsonLine(resultOf(options_.word, facts, outcome, took)));
}

}  // namespace

Outcome runOnTags(const Options& options, const Book& book, const SignalFd& signals,
                  Console& console) {
  OnTags tags(options, book, console);
  if (auto outcome = tags.prepare(); outcome.code != kDone) return outcome;
  Radio radio(options);
  console.note("radio: " + radio.description());
  Loop loop(radio.queue(), signals);
  Links links(radio, loop, console, /*kept=*/false);
  return tags.run(links);
}

Outcome runOnTags(const Options& options, const Book& book, Links& links) {
  OnTags tags(options, book, links.console());
  if (auto outcome = tags.prepare(); outcome.code != kDone) return outcome;
  return tags.run(links);
}

}  // namespace kvfob

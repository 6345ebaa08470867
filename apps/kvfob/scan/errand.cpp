// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/errand.h"

#include <chrono>
#include <utility>

#include "apps/kvfob/base/tag_facts.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;

}  // namespace

Errand::Errand(Session& session, ErrandKind kind, std::string address, Secret password,
               std::chrono::milliseconds patience, Done done)
    : session_(session),
      kind_(kind),
      address_(std::move(address)),
      password_(std::move(password)),
      done_(std::move(done)) {
  session_.after(patience, [this, alive = std::weak_ptr(alive_)] {
    if (alive.expired()) return;
    if (!connecting_) return finish({kNotFound, "not heard; bring it near"});
    finish({kTimedOut, asked_
                           ? "no answer; try again"
                           : "heard, but did not get ready; bring it near, and see that no other "
                             "device is connected to it"});
  });
  kind_ == ErrandKind::Bind ? bind() : connect();
}

void Errand::bind() {
  const auto tracker = session_.manager().existTracker(address_, /*bind=*/false);
  if (!tracker) return finish({kNotFound, "not heard just now; bring it near"});
  held_ = std::make_unique<HeldTag>(session_, tracker);
  connecting_ = true;
  session_.manager().setPassword(password_.text());
  session_.manager().stopScan();
  session_.manager().bindingVerify(
      tracker, [this, alive = std::weak_ptr(alive_)](bool success, const auto& error) {
        if (!alive.expired()) answered(success, error);
      });
}

void Errand::connect() {
  held_ = std::make_unique<HeldTag>(session_, address_, password_);
  held_->tracker()->didConnectionChange(
      [this](std::uint64_t connection) { connectionChanged(connection); });
}

void Errand::connectionChanged(std::uint64_t connection) {
  if (connection == KVConnectionVerifyFailed) {
    return finish({kRefused, "refused the password; it was bound with another one since"});
  }
  if (connection == KVConnectionConnecting) {
    connecting_ = true;
    // The radio can do either better alone, and an advertisement from before the link came up must
    // not ask for another.
    session_.manager().stopScan();
  }
  if (connection != KVConnectionConnected || asked_) return;
  asked_ = true;
  held_->tracker()->switchBellStatus(
      kind_ == ErrandKind::Ring,
      [this, alive = std::weak_ptr(alive_)](bool success, const auto& error) {
        if (!alive.expired()) answered(success, error);
      });
}

void Errand::answered(bool success, const std::optional<KVError>& error) {
  if (success) return finish({});
  if (kind_ == ErrandKind::Bind && error && error->code == kBindTimedOut) {
    return finish({kTimedOut, "did not answer the bind request"});
  }
  const auto why = error ? error->domain : "no reason given";
  const auto* hint = kind_ == ErrandKind::Bind
                         ? " A tag that is bound takes only the password it was bound with."
                         : "";
  finish({kRefused, "refused: " + why + hint});
}

void Errand::finish(Outcome outcome) {
  if (std::exchange(finished_, true)) return;
  session_.after(0ms, [this, alive = std::weak_ptr(alive_), outcome = std::move(outcome)] {
    if (alive.expired()) return;
    held_.reset();
    const auto done = done_;
    done(outcome);
  });
}

}  // namespace kvfob

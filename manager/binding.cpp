// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Binding and unbinding.
#include <utility>

#include "manager/core.h"
#include "manager/messages.h"
#include "platform/task_queue.h"
#include "tracker/core.h"
#include "tracker/tracker_index.h"

namespace {

// What a request in flight needs. The queue owns it, by one of its tasks: so the request outlives
// the application's last reference to manager and tracker, but not the queue, after which nothing
// can answer it any more. If a tracker's slot owned it, these would keep each other alive.
struct Kept {
  std::shared_ptr<KVTrackerManager> manager;
  std::shared_ptr<KVTracker> tracker;
};

// Belongs to a request's callback: when the result is in, or another callback takes the slot,
// nothing is kept any more.
class InFlight {
 public:
  InFlight(std::weak_ptr<Kept> kept, std::shared_ptr<const kv::Services> services,
           KVEventQueue::TaskId keeper)
      : kept_(std::move(kept)), services_(std::move(services)), keeper_(keeper) {}
  ~InFlight() { end(); }
  InFlight(const InFlight&) = delete;
  InFlight& operator=(const InFlight&) = delete;

  // Hands over what was kept.
  Kept end() {
    const auto kept = kept_.lock();
    if (!kept) return {};  // its task has gone already, or is going at this moment
    services_->queue.cancel(keeper_);
    return std::exchange(*kept, {});
  }

 private:
  const std::weak_ptr<Kept> kept_;
  const std::shared_ptr<const kv::Services> services_;
  const KVEventQueue::TaskId keeper_;
};

}  // namespace

void KVTrackerManager::Core::bind(const Tracker& tracker, KVResultCallback completion,
                                  std::shared_ptr<KVTrackerManager> manager) {
  if (!tracker || !tracker->peripheral()) {
    log("the given tracker doesn't have a peripheral.");
    return;
  }
  const auto bound = kv::sharedOf(tracker.get());
  const auto kept = std::make_shared<Kept>(Kept{std::move(manager), nullptr});
  bound->setBindingBlock(
      [core = weak_from_this(), inFlight = std::make_shared<InFlight>(kept, services_, 0),
       target = std::weak_ptr(bound),
       completion = std::move(completion)](bool success, const std::optional<KVError>& error) {
        const Kept held = inFlight->end();
        if (const auto alive = core.lock()) alive->finishBinding(target.lock(), success);
        if (completion) completion(success, error);
      });
  // The check keeps the tracker until it runs, and the manager until the result is in.
  KVTracker::Core::of(*bound).setBinding(
      /*binding=*/true, std::make_shared<std::pair<Tracker, std::shared_ptr<Kept>>>(bound, kept));
  bound->setPassword(password);
  connect(bound);
}

void KVTrackerManager::Core::finishBinding(const Tracker& tracker, bool success) {
  if (!success) {
    log("bind Failed!");
    return;
  }
  if (!tracker) return;
  tracker->setBound(true);
  bindArray->append(tracker);
  if (tracker->mac()) scannedDict->erase(*tracker->mac());
}

void KVTrackerManager::Core::unbind(const std::string& mac, KVResultCallback completion,
                                    std::shared_ptr<KVTrackerManager> manager) {
  const auto tracker = bindArray->firstWithMac(mac);
  if (!tracker) return;
  if (tracker->connection() != KVConnectionConnected) {
    finishUnbinding(tracker, /*success=*/true);
    if (completion) completion(true, std::nullopt);
    return;
  }
  const auto kept = std::make_shared<Kept>(Kept{std::move(manager), tracker});
  const auto keeper = services_->queue.postAfter(kv::kForever, [kept] {});
  tracker->removeBindPassword(
      [core = weak_from_this(), inFlight = std::make_shared<InFlight>(kept, services_, keeper),
       target = std::weak_ptr(tracker),
       completion = std::move(completion)](bool success, const std::optional<KVError>& error) {
        const Kept held = inFlight->end();
        const auto alive = core.lock();
        const auto unbound = target.lock();
        if (alive && unbound) alive->finishUnbinding(unbound, success);
        if (completion) completion(success, error);
      });
}

void KVTrackerManager::Core::finishUnbinding(const Tracker& tracker, bool success) {
  // Also after a refusal: the tag is no longer ours to reconnect, though it stays in the list.
  tracker->setBound(false);
  if (!success) return;
  disconnect(tracker);
  bindArray->remove(tracker);
}

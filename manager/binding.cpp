/// Binding and unbinding.
#include "KVFobLink/KVTrackerManager.h"
#include "manager/messages.h"

namespace {

/// Owns an object until `release`, and from then on only watches it.
///
/// The result callbacks below stay in a tracker's slot after they were called. They own what they
/// need until their result is in; owning it for longer would keep tracker and manager alive for
/// each other's sake, for ever.
template <typename Object>
class OwnedUntilResult {
 public:
  explicit OwnedUntilResult(std::shared_ptr<Object> object)
      : owned_(std::move(object)), watched_(owned_) {}

  std::shared_ptr<Object> get() const { return watched_.lock(); }
  void release() { owned_.reset(); }

 private:
  std::shared_ptr<Object> owned_;
  std::weak_ptr<Object> watched_;
};

template <typename Object>
std::shared_ptr<OwnedUntilResult<Object>> owned(std::shared_ptr<Object> object) {
  return std::make_shared<OwnedUntilResult<Object>>(std::move(object));
}

}  // namespace

void KVTrackerManager::bindingVerify(const std::shared_ptr<KVTracker>& tracker,
                                     KVResultCallback completion) {
  if (!tracker || !tracker->peripheral()) {
    log("the given tracker doesn't have a peripheral.");
    return;
  }
  const auto self = shared_from_this();
  // Kept: the argument may be an element of what a callback changes.
  const auto bound = tracker->shared_from_this();
  bound->setBindingBlock(
      [manager = owned(self), weak = std::weak_ptr(bound), completion = std::move(completion)](
          bool success, const std::optional<KVError>& error) {
        const auto alive = manager->get();
        manager->release();
        if (alive) alive->finishBinding(weak.lock(), success);
        if (completion) completion(success, error);
      });
  bound->setBinding(true);
  bound->setPassword(password_);
  connect(bound);
}

void KVTrackerManager::finishBinding(const std::shared_ptr<KVTracker>& tracker, bool success) {
  if (!success) {
    log("bind Failed!");
    return;
  }
  if (!tracker) return;
  tracker->setBound(true);
  bindArray_->append(tracker);
  if (tracker->mac()) scannedDict_->erase(*tracker->mac());
}

void KVTrackerManager::unbindTracker(const Mac& mac, KVResultCallback completion) {
  if (!mac) {
    log(kv::kNoMacAddress);
    return;
  }
  const auto self = shared_from_this();
  const auto tracker = bindArray_->firstWithMac(*mac);
  if (!tracker) return;
  if (tracker->connection() != KVConnectionConnected) {
    finishUnbinding(tracker, /*success=*/true);
    if (completion) completion(true, std::nullopt);
    return;
  }
  tracker->removeBindPassword(
      [manager = owned(self), unbound = owned(tracker), completion = std::move(completion)](
          bool success, const std::optional<KVError>& error) {
        const auto alive = manager->get();
        const auto target = unbound->get();
        manager->release();
        unbound->release();
        if (alive && target) alive->finishUnbinding(target, success);
        if (completion) completion(success, error);
      });
}

void KVTrackerManager::finishUnbinding(const std::shared_ptr<KVTracker>& tracker, bool success) {
  // Also after a refusal: the tag is no longer ours to reconnect, though it stays in the list.
  tracker->setBound(false);
  if (!success) return;
  disconnect(tracker);
  bindArray_->remove(tracker);
}

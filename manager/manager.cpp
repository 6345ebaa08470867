/// The manager's life, and the state of the Bluetooth adapter.
#include <array>
#include <string>

#include "KVFobLink/KVTrackerManager.h"
#include "platform/wipe.h"

namespace {

/// "Unautorized" is how the log has always spelled it.
constexpr std::array<std::string_view, 6> kStateNames{"Unknown",     "Resetting", "Unsupported",
                                                      "Unautorized", "Poweroff",  "Poweron"};

std::string_view stateName(std::int64_t state) {
  const auto index = static_cast<std::uint64_t>(state);
  return index < kStateNames.size() ? kStateNames[index] : kStateNames.front();
}

/// What a tracker's state becomes at a power-on during a scan: unknown, until the tag is heard
/// again.
constexpr std::int64_t kStateUnknown = -1;

}  // namespace

std::shared_ptr<KVTrackerManager> KVTrackerManager::sharedInstance() {
  // Never destroyed: callbacks may reach it while the process ends.
  static const auto& instance =
      *new std::shared_ptr<KVTrackerManager>(std::make_shared<KVTrackerManager>());
  return instance;
}

KVTrackerManager::KVTrackerManager()
    : platform_(KVPlatform::shared()),
      scannedDict_(std::make_shared<KVTrackerMap>()),
      bindArray_(std::make_shared<KVTrackerList>()),
      central_(platform_->radio->makeCentral(*this, platform_->eventQueue)) {}

KVTrackerManager::~KVTrackerManager() { kv::wipe(password_); }

void KVTrackerManager::log(std::string_view line) const { platform_->log->write(line); }

std::uint64_t KVTrackerManager::bleState() const {
  return central_ ? static_cast<std::uint64_t>(central_->state())
                  : std::uint64_t{KVCentralStateUnknown};
}

void KVTrackerManager::setPassword(std::optional<std::string> password) {
  kv::wipe(password_);
  password_ = password;  // copied, so that the argument can be wiped
  kv::wipe(password);
}

void KVTrackerManager::centralManagerDidUpdateState(KVCentral& central) {
  const auto self = weak_from_this().lock();
  if (central.state() == KVCentralStatePoweredOn && scanning_) {
    scanForTrackers();
    for (std::size_t i = 0; i < bindArray_->size(); ++i) {
      const auto tracker = (*bindArray_)[i];
      tracker->setState(kStateUnknown);
    }
  } else {
    for (std::size_t i = 0; i < bindArray_->size(); ++i) {
      const auto tracker = (*bindArray_)[i];
      if (tracker->state() == KVTrackerStateConnected) {
        tracker->setState(KVTrackerStateDisconnected);
      }
    }
  }
  stateChangeBlock_(central.state());
  log("The bluetooth state:" + std::string(stateName(central.state())));
}

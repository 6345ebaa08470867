/// Routing of what the tag sends.
#include <cstddef>
#include <string_view>

#include "KVFobLink/KVCommandInter.h"
#include "KVFobLink/KVTracker.h"
#include "tracker/gatt_layout.h"
#include "tracker/wire.h"

namespace {

constexpr std::size_t kTokenSize = 16;
constexpr std::int64_t kButtonPressed = 1;

bool isAnswerCharacteristic(const KVCharacteristic& characteristic) {
  const auto service = characteristic.service();
  return service && kv::isCommandService(service->uuid()) &&
         kv::isCommandCharacteristic(characteristic.uuid());
}

/// A status of 0 is success, and so is an answer without one.
bool accepted(const std::optional<KVData>& payload) {
  return !payload || payload->empty() || payload->front() == 0;
}

void report(const KVCallbackSlot<KVResultCallback>& callback, bool success,
            std::string_view message, std::int64_t code) {
  if (!callback) return;
  if (success) {
    callback(true, std::nullopt);
  } else {
    callback(false, KVError{std::string(message), code, std::nullopt});
  }
}

}  // namespace

void KVTracker::didUpdateValueForCharacteristic(
    KVPeripheral& /*peripheral*/, const std::shared_ptr<KVCharacteristic>& characteristic,
    const std::optional<KVError>& /*error*/) {
  if (!characteristic || !isAnswerCharacteristic(*characteristic)) return;
  const auto self = weak_from_this().lock();
  const KVBytes value = characteristic->value() ? KVBytes(*characteristic->value()) : KVBytes();

  if (auth_ == KVAuthNone) {
    if (value.size() < kTokenSize) {
      auth_ = KVAuthBindWritten;
      writeBindData();
    } else {
      auth_ = KVAuthTokenReceived;
      validateDevice(value);
    }
    return;
  }
  KVCommandInter::interCommandData(
      decryptConnectionData(value),
      [this](std::int64_t answerCode, std::int64_t /*secondCode*/,
             const std::optional<KVData>& payload) { handleAnswer(answerCode, payload); });
}

void KVTracker::handleAnswer(std::int64_t code, const std::optional<KVData>& payload) {
  const bool success = accepted(payload);
  switch (code) {
    case kv::kBindCommand:
      handleBindAnswer(success);
      break;
    case kv::kBellCommand:
      report(ringBlock_, success, "ring device failed.", 200);
      break;
    case kv::kLossAlertCommand:
      report(writelossAlertBlock_, success, "write loss alert failed.", 300);
      break;
    case kv::kLossDelayCommand:
      report(writelossDelayBlock_, success, "write loss delay failed.", 400);
      break;
    case kv::kRemovePasswordCommand:
      report(passwordRemoveBlock_, success, "password removed.", 500);
      break;
    case kv::kButtonEvent:
      receiveBlock_(kButtonPressed);
      break;
    default:
      break;
  }
}

void KVTracker::handleBindAnswer(bool accepted) {
  if (accepted) {
    initRSSITimerThread();
    updateConnection(KVConnectionConnected);
  }
  if (binding_ && bindingBlock_) {
    binding_ = false;
    report(bindingBlock_, accepted, "error password.", 100);
    return;
  }
  // On a plain reconnect an accepted password is thus reported twice; applications have come to
  // expect it.
  updateConnection(accepted ? KVConnectionConnected : KVConnectionVerifyFailed);
}

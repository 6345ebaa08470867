/// The BlueZ central.
#ifndef PLATFORM_LINUX_BLUEZ_RADIO_H
#define PLATFORM_LINUX_BLUEZ_RADIO_H

#include <chrono>
#include <memory>

#include "KVFobLink/KVLinuxPlatform.h"
#include "KVFobLink/KVPlatform.h"

namespace kv {

/// Waiting times that nobody but a test has reason to change.
struct BlueZTiming {
  /// The pause before the bus is opened again: doubles from the first value up to the second.
  std::chrono::milliseconds busRetryFirst{500};
  std::chrono::milliseconds busRetryMost{30'000};
  /// Any call that only concerns bluetoothd itself.
  std::chrono::milliseconds daemonCall{10'000};
  /// A daemon that has just started has no adapter for a moment; so long that is not reported.
  std::chrono::milliseconds noAdapterGrace{2'000};
  /// When the adapter is powered off the links end first; so long a drop waits for the power state
  /// that explains it.
  std::chrono::milliseconds dropHold{500};
  /// A link that ends sooner than this counts as a failed attempt.
  std::chrono::milliseconds flap{5'000};
  /// The services of a link may be exported after it is called resolved.
  std::chrono::milliseconds servicesGrace{2'000};
  /// A Connect that succeeded without a link, or failed with one, settles within this time.
  std::chrono::milliseconds settle{3'000};
  /// An attempt at a tag that has not been heard is cut to this while others wait for the radio: a
  /// scan, or another attempt. The tag is then tried again when it is heard.
  std::chrono::milliseconds contendedConnect{5'000};
  /// A pause when the adapter has no room for another link.
  std::chrono::milliseconds noRoomPause{4'000};
  /// A tag that is waited for is tried blindly this often, should its advertisements not reach us.
  std::chrono::milliseconds blindRetry{120'000};
  /// A scan that could not start is tried again: doubles from the first value up to the second.
  std::chrono::milliseconds scanRetryFirst{250};
  std::chrono::milliseconds scanRetryMost{5'000};
  /// BlueZ pauses discovery briefly between its windows; a longer pause is an interruption.
  std::chrono::milliseconds scanGap{6'000};
  /// How long a scan may take to stop before an attempt to connect goes on regardless.
  std::chrono::milliseconds scanStop{2'000};
  /// The controller's answer to Read RSSI.
  std::chrono::milliseconds rssi{1'000};
};

/// Makes centrals that need a `KVLinuxEventQueue`; on any other queue a central is Unsupported for
/// good and says so in the log. Nothing is opened before a central is made.
std::shared_ptr<KVRadio> makeBlueZRadio(KVBlueZOptions options, std::shared_ptr<KVLog> log,
                                        BlueZTiming timing = {});

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_RADIO_H

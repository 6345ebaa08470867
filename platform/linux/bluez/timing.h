// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// How long the BlueZ central waits for what.
#ifndef PLATFORM_LINUX_BLUEZ_TIMING_H
#define PLATFORM_LINUX_BLUEZ_TIMING_H

#include <chrono>

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
  std::chrono::milliseconds shortLink{5'000};
  /// The services of a link may be exported after it is called resolved.
  std::chrono::milliseconds servicesGrace{2'000};
  /// A Connect that succeeded without a link gets one within this time.
  std::chrono::milliseconds settle{3'000};
  /// An attempt at a tag that has not been heard is cut to this while others wait for the radio: a
  /// scan, or another attempt. The tag is then tried again when it is heard.
  std::chrono::milliseconds contendedConnect{5'000};
  /// A pause when the adapter holds as many links as it can.
  std::chrono::milliseconds connectionLimitPause{4'000};
  /// A tag that is waited for is tried this often though it was not heard, should its
  /// advertisements not reach us.
  std::chrono::milliseconds unheardRetry{120'000};
  /// A scan that could not start is tried again: doubles from the first value up to the second.
  std::chrono::milliseconds scanRetryFirst{250};
  std::chrono::milliseconds scanRetryMost{5'000};
  /// BlueZ pauses discovery briefly between its windows; a longer pause is an interruption.
  std::chrono::milliseconds scanGap{6'000};
  /// How long a scan may take to stop before an attempt to connect goes on regardless.
  std::chrono::milliseconds scanStop{2'000};
  /// The pause before a request that was refused with InProgress is sent again: doubles from the
  /// first value up to the second.
  std::chrono::milliseconds requestRetryFirst{20};
  std::chrono::milliseconds requestRetryMost{320};
  /// The controller's answer to Read RSSI.
  std::chrono::milliseconds rssi{1'000};
};

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_TIMING_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What the library needs of the system it runs on.
///
/// An application needs this header to reach the event queue, to put the log elsewhere, or to run
/// on another radio: the simulator, or a platform of its own.
#ifndef KVFOBLINK_KVPLATFORM_H
#define KVFOBLINK_KVPLATFORM_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "KVFobLink/KVBluetooth.h"
#include "KVFobLink/KVEventQueue.h"
#include "KVFobLink/KVExport.h"

/// Makes centrals.
class KVFOB_EXPORT KVRadio {
 public:
  virtual ~KVRadio() = default;

  /// Makes a central whose events go to `delegate` on `queue`; the adapter's state is the first.
  /// `delegate` must outlive the central, and the central be dropped on the event thread. Any
  /// thread may call this.
  virtual std::shared_ptr<KVCentral> makeCentral(KVCentralDelegate& delegate,
                                                 const std::shared_ptr<KVEventQueue>& queue) = 0;
};

/// One-block AES-128 (FIPS 197) and MD5 (RFC 1321). Any thread.
class KVFOB_EXPORT KVCipher {
 public:
  virtual ~KVCipher() = default;

  /// Transforms one block. False on failure; `out` is then unspecified.
  virtual bool aes128Block(std::span<const std::uint8_t, 16> key,
                           std::span<const std::uint8_t, 16> in, std::span<std::uint8_t, 16> out,
                           bool encrypt) const = 0;

  virtual void md5(KVBytes data, std::span<std::uint8_t, 16> digest) const = 0;
};

/// Cryptographically strong randomness. Any thread.
class KVFOB_EXPORT KVRandom {
 public:
  virtual ~KVRandom() = default;
  virtual void fill(std::span<std::uint8_t> bytes) = 0;
};

/// Regular expressions in ICU's dialect, on any thread. Text and patterns are UTF-8; what is
/// malformed counts as U+FFFD. A pattern that is invalid, or that runs away (longer than about a
/// second), does not match.
class KVFOB_EXPORT KVPatternMatcher {
 public:
  virtual ~KVPatternMatcher() = default;

  /// Whether the whole text matches, case-sensitively.
  virtual bool fullMatch(std::string_view text, std::string_view pattern) = 0;

  /// The first match anywhere in the text, ignoring case; absent when there is none.
  virtual std::optional<std::string> firstMatch(std::string_view text,
                                                std::string_view pattern) = 0;
};

/// A repeating timer that ticks on a thread other than the event thread. Dropping it cancels it.
class KVFOB_EXPORT KVTimerThread {
 public:
  virtual ~KVTimerThread() = default;

  /// Ends the ticking, for good. Called from inside the tick, it returns at once and no further
  /// tick follows; called from any other thread, it returns once a tick in progress has ended.
  /// Never wait inside a tick for a thread that may be cancelling it.
  virtual void cancel() = 0;
};

/// Makes timer threads. Any thread.
class KVFOB_EXPORT KVTimerThreads {
 public:
  virtual ~KVTimerThreads() = default;

  /// Calls `tick` every `interval`, the first time after one interval. A tick must be short: timers
  /// may share one thread. Ticks that are missed are not made up for.
  virtual std::shared_ptr<KVTimerThread> start(std::chrono::nanoseconds interval,
                                               std::function<void()> tick) = 0;
};

/// The calendar clock. Any thread.
class KVFOB_EXPORT KVClock {
 public:
  virtual ~KVClock() = default;
  virtual std::chrono::system_clock::time_point now() const = 0;
};

/// Takes the library's diagnostic lines, each without its line end. Any thread.
class KVFOB_EXPORT KVLog {
 public:
  virtual ~KVLog() = default;
  virtual void write(std::string_view line) = 0;
};

class KVPlatformExtension;

/// One set of implementations. Every member up to `log` must be present. To replace one part,
/// change it in a copy of the set:
///
///     auto mine = std::make_shared<KVPlatform>(*KVPlatform::shared());
///     mine->log = std::make_shared<MyLog>();
///     KVPlatform::setCurrent(mine);
struct KVFOB_EXPORT KVPlatform {
  std::shared_ptr<KVEventQueue> eventQueue;
  std::shared_ptr<KVRadio> radio;
  std::shared_ptr<KVCipher> cipher;
  std::shared_ptr<KVRandom> random;
  std::shared_ptr<KVPatternMatcher> patterns;
  std::shared_ptr<KVTimerThreads> timers;
  std::shared_ptr<KVClock> clock;
  std::shared_ptr<KVLog> log;

  /// Room for parts that a later version may add: leave it as it is. A program that was built
  /// without them thus keeps its size and hands them on when it copies the set.
  std::shared_ptr<KVPlatformExtension> extension;

  /// The platform of this process: the one installed by `setCurrent`, else the Linux one with its
  /// default options, made at the first call. The reference holds until the next `setCurrent`.
  /// Any thread may call this.
  static const KVPlatform& current();

  /// The same, to keep.
  static std::shared_ptr<const KVPlatform> shared();

  /// Installs a platform; null goes back to the default one. Call it before any other use of the
  /// library, or while no other thread is using it. Trackers and managers that exist keep the
  /// platform with which they were made.
  static void setCurrent(std::shared_ptr<const KVPlatform> platform);
};

#endif  // KVFOBLINK_KVPLATFORM_H

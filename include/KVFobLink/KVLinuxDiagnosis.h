// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Why Bluetooth does not work on this machine, and what to do about it.
#ifndef KVFOBLINK_KVLINUXDIAGNOSIS_H
#define KVFOBLINK_KVLINUXDIAGNOSIS_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KVFobLink/KVExport.h"
#include "KVFobLink/KVLinuxPlatform.h"

/// What a finding means for the library.
enum class KVVerdict : std::uint8_t {
  Ok,        ///< As it should be.
  Hint,      ///< The library works, but something may be missed.
  Unusable,  ///< The library cannot work before this is mended.
  ok [[deprecated("use Ok")]] = Ok,
  hint [[deprecated("use Hint")]] = Hint,
  unusable [[deprecated("use Unusable")]] = Unusable,
};

/// One thing that was looked at.
struct KVFinding {
  /// One of "bus", "service" (bluetoothd), "permission", "adapter", "power", "rssi" (of a live
  /// link), "scan" (by others), "link" (held by others).
  std::string topic;
  KVVerdict verdict = KVVerdict::Ok;
  std::string seen;    ///< In words, without a full stop.
  std::string advice;  ///< What to do; empty when nothing needs doing.
};

/// Looks at the bus, bluetoothd, its adapters and its links, and changes nothing.
///
///     auto diagnosis = KVLinuxDiagnosis::start(queue, {}, [](const auto& findings) {
///       for (const auto& finding : findings) {
///         std::cout << finding.topic << ": " << finding.seen << ". " << finding.advice << '\n';
///       }
///     });
class KVFOB_EXPORT KVLinuxDiagnosis {
 public:
  /// Takes what was found, in the order in which to read it. What cannot be looked at, because
  /// something before it is unusable, is left out.
  using Done = std::function<void(const std::vector<KVFinding>& findings)>;

  /// Begins to look, and calls `done` once, on the event thread and within about ten seconds. Of
  /// `options` the adapter and the bus count. The scans and links of this process count as those of
  /// others, so it is best done before a central is made. Any thread.
  ///
  /// @return the diagnosis under way; dropping it, on the event thread, ends it without a call.
  [[nodiscard]] static std::shared_ptr<KVLinuxDiagnosis> start(
      const std::shared_ptr<KVLinuxEventQueue>& queue, const KVBlueZOptions& options, Done done) {
    return startWith(queue, KVLinuxSettings(options), std::move(done));
  }
  [[nodiscard]] static std::shared_ptr<KVLinuxDiagnosis> startWith(
      const std::shared_ptr<KVLinuxEventQueue>& queue, const KVLinuxSettings& settings, Done done);

  virtual ~KVLinuxDiagnosis() = default;
};

#endif  // KVFOBLINK_KVLINUXDIAGNOSIS_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The radio that the command line chose, as the platform in force.
#ifndef APPS_KVFOB_RADIO_RADIO_H
#define APPS_KVFOB_RADIO_RADIO_H

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "KVFobLink/KVFobLink.h"
#include "KVFobLink/KVLinuxDiagnosis.h"
#include "KVFobSimulator/SimulatedRadio.h"
#include "apps/kvfob/cli/options.h"

namespace kvfob {

/// Where the library's diagnostic lines go: to standard error, as far as they are asked for.
std::shared_ptr<KVLog> makeLog(LogLevel level);

/// Puts a platform in force for as long as it lives.
class PlatformInForce {
 public:
  explicit PlatformInForce(std::shared_ptr<const KVPlatform> platform) {
    KVPlatform::setCurrent(std::move(platform));
  }
  ~PlatformInForce() { KVPlatform::setCurrent(nullptr); }
  PlatformInForce(const PlatformInForce&) = delete;
  PlatformInForce& operator=(const PlatformInForce&) = delete;
};

class Radio {
 public:
  /// Installs the platform.
  explicit Radio(const Options& options);

  /// What the user is told, so that nobody takes one for the other.
  const std::string& description() const { return description_; }

  std::shared_ptr<KVEventQueue> queue() const { return KVPlatform::current().eventQueue; }

  /// Looks why Bluetooth does not work here, if this is the radio of the machine; else nothing is
  /// called. It ends when what is returned is dropped.
  std::shared_ptr<KVLinuxDiagnosis> diagnose(KVLinuxDiagnosis::Done done) const;

 private:
  void fill(const Options& options);

  std::string description_;
  std::string adapter_;
  std::unique_ptr<kvsim::SimulatedRadio> simulated_;
  std::optional<PlatformInForce> platform_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_RADIO_RADIO_H

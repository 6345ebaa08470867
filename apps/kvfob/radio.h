/// The radio that the command line chose, as the platform in force.
#ifndef APPS_KVFOB_RADIO_H
#define APPS_KVFOB_RADIO_H

#include <memory>
#include <string>

#include "KVFobLink/KVFobLink.h"
#include "KVFobSimulator/SimulatedRadio.h"
#include "apps/kvfob/options.h"

namespace kvfob {

/// The tag of the simulated radio that is bound already, and with what.
inline constexpr const char* kBoundTag = "0a1b2c3d4e5f";
inline constexpr const char* kBoundTagPassword = "sesame";

/// Where the library's diagnostic lines go: to standard error, or nowhere.
std::shared_ptr<KVLog> makeLog(bool shown);

class Radio {
 public:
  /// Installs the platform.
  explicit Radio(const Options& options);
  ~Radio();
  Radio(const Radio&) = delete;
  Radio& operator=(const Radio&) = delete;

  /// What the user is told, so that nobody takes one for the other.
  const std::string& description() const { return description_; }

  std::shared_ptr<KVEventQueue> queue() const { return platform_->eventQueue; }

  /// The simulated radio; null with a real one.
  kvsim::SimulatedRadio* simulated() const { return simulated_.get(); }

 private:
  void fill(const Options& options);
  void enliven(const std::shared_ptr<kvsim::VirtualTag>& tag);

  std::string description_;
  std::shared_ptr<KVPlatform> platform_;
  std::unique_ptr<kvsim::SimulatedRadio> simulated_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_RADIO_H

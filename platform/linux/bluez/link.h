// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// One standing request for a link, through all its attempts, and the link itself.
#ifndef PLATFORM_LINUX_BLUEZ_LINK_H
#define PLATFORM_LINUX_BLUEZ_LINK_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "KVFobLink/KVTypes.h"
#include "platform/linux/bluez/context.h"
#include "platform/linux/bluez/errors.h"
#include "platform/linux/bluez/gatt_session.h"
#include "platform/linux/bluez/object_tree.h"
#include "platform/linux/bluez/peripheral.h"

namespace kv {

class Link;

/// What a link needs of its central.
class LinkHost {
 public:
  virtual ~LinkHost() = default;
  /// The path of the adapter that is on; empty when there is none.
  virtual const std::string& adapterPath() const = 0;
  /// Asks to become the initiator, of which there is one at a time; `Link::initiatingGranted` says
  /// when.
  virtual void requestInitiating(Link& link) = 0;
  /// Is, or wants to be, the initiator no more.
  virtual void releaseInitiating(Link& link) = 0;
  /// Whether a scan or another attempt waits for the radio.
  virtual bool radioContended() const = 0;
  /// The link has begun or ceased to wait for an advertisement.
  virtual void advertisementsWantedChanged() = 0;
  virtual void reportConnected(Link& link) = 0;
  virtual void reportDisconnected(Link& link, std::optional<KVError> error) = 0;
};

/// Event thread. Nothing is reported from inside a call.
class Link {
 public:
  Link(Context& context, LinkHost& host, std::shared_ptr<BlueZPeripheral> peripheral);

  void request(std::shared_ptr<BlueZPeripheral> peripheral);
  void cancel();

  void initiatingGranted();
  void adapterOn();
  void adapterLost();
  void deviceHeard();
  void deviceChanged(const DeviceObject& device);
  void deviceDisconnected(const std::string& why);
  void deviceRemoved(const DeviceObject& device);

  const std::shared_ptr<BlueZPeripheral>& peripheral() const { return peripheral_; }
  const std::string& address() const { return peripheral_->identifier(); }
  GattSession* session() const { return session_.get(); }
  bool idle() const { return phase_ == Phase::Idle && !wanted_; }
  bool wanted() const { return wanted_; }
  bool up() const { return phase_ == Phase::Up; }
  bool waitsForAdvertisement() const { return phase_ == Phase::WaitingAdvertisement; }
  /// Asks the daemon to end whatever there is of this link, without waiting.
  void close();

 private:
  enum class Phase {
    Idle,                  ///< Nothing is wanted.
    WaitingAdapter,        ///< No adapter is on.
    WaitingAdvertisement,  ///< The tag must be heard before the next attempt.
    Pausing,               ///< A failed attempt is followed by a pause.
    WaitingToInitiate,     ///< Another attempt is under way.
    Connecting,            ///< Connect was called.
    Resolving,             ///< The link is up and its services are being discovered.
    Up,
    Dropping,  ///< The link has dropped, which is about to be reported.
    Ending,    ///< Disconnect was called.
  };

  void begin();
  void enter(Phase phase);
  void attemptConnect();
  void connectAnswered(const BusFault& error);
  void awaitConnected();
  void resolve(const DeviceObject& device);
  void servicesMissing();
  void becomeUp();
  void attemptFailed(std::chrono::milliseconds pause);
  void retryAfterFailure();
  void waitForAdvertisement();
  void leave(Phase phase, std::chrono::milliseconds limit);
  void disconnect(std::chrono::milliseconds limit);
  void ended();
  void dropCalls();
  void giveUpLink(GattSession::Broken why);
  void removeDevice(const std::string& why);
  void explain(Fault fault, const BusError& error);
  void preferLowEnergy();
  std::chrono::milliseconds backoff() const;
  DeviceObject* device() const;
  /// Whether the daemon has a link to the device.
  bool deviceConnected() const;
  BusMessage deviceCall(const char* member) const;

  Context& context_;
  LinkHost& host_;
  std::shared_ptr<BlueZPeripheral> peripheral_;
  Phase phase_ = Phase::Idle;
  bool wanted_ = false;               ///< A request that has not been answered.
  bool reportDown_ = false;           ///< The end of this link is still to be reported,
  std::optional<KVError> downError_;  ///< with this error.
  bool silent_ = false;               ///< The last attempt found nobody.
  bool heard_ = false;                ///< This attempt follows an advertisement.
  bool refreshed_ = false;            ///< The objects were read anew for missing services.
  bool removedOnce_ = false;          ///< The device was removed for what the daemon knew of it.
  std::string lastExplained_;
  int failures_ = 0;    ///< In a row, which decides on the next pause.
  int shortLinks_ = 0;  ///< Links in a row that ended at once.
  KVEventQueue::Duration upSince_{};
  std::string devicePath_;  ///< Of the attempt or link in progress.
  Timer timer_;
  BusSlot connectCall_;
  BusSlot disconnectCall_;
  BusSlot refreshCall_;
  std::shared_ptr<GattSession> session_;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_LINK_H

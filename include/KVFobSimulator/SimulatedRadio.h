// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A Bluetooth radio without Bluetooth.
#ifndef KVFOBSIMULATOR_SIMULATEDRADIO_H
#define KVFOBSIMULATOR_SIMULATEDRADIO_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "KVFobLink/KVPlatform.h"
#include "KVFobLink/KVTypes.h"
#include "KVFobLink/KVUUID.h"
#include "KVFobSimulator/VirtualEventQueue.h"
#include "KVFobSimulator/VirtualTag.h"

namespace kvsim {

enum class ClockKind {
  Virtual,  ///< Time passes only inside the `run` operations of the queue, and in an instant.
  Real,     ///< Time passes as it does.
};

/// How well advertisements get through.
struct Air {
  double lost = 0;        ///< The share that is lost, 0 to 1.
  double duplicated = 0;  ///< The share that is received twice, 0 to 1.
  /// Each signal strength is off by up to this many dB, evenly spread.
  unsigned rssiJitter = 0;
};

struct SimulatedRadioOptions {
  /// The same seed and the same calls give the same run, event by event (with the virtual clock).
  std::uint64_t seed = 1;
  ClockKind clock = ClockKind::Virtual;
  /// The adapter's state at the start.
  KVCentralState adapterState = KVCentralStatePoweredOn;

  /// How often a tag advertises. Zero: only when `SimulatedRadio::advertise` is called.
  std::chrono::nanoseconds advertisingInterval = std::chrono::seconds(1);
  /// Each advertisement is late by a random time up to this, as the radio standard has it.
  std::chrono::nanoseconds advertisingDelay = std::chrono::milliseconds(10);
  Air air{};
  /// What is weaker than this, in dBm, is out of range.
  std::int64_t sensitivity = -100;

  /// How long one attempt to connect takes. At least a millisecond.
  std::chrono::nanoseconds connectLatency = std::chrono::milliseconds(30);
  /// How long one request on a link takes.
  std::chrono::nanoseconds requestLatency = std::chrono::milliseconds(8);
  /// How long a link takes to end once this side asked for it.
  std::chrono::nanoseconds disconnectLatency = std::chrono::milliseconds(8);
  /// When an attempt that meets no answer is given up.
  std::chrono::nanoseconds connectTimeout = std::chrono::seconds(20);
  /// When a link whose requests are not answered is given up.
  std::chrono::nanoseconds requestTimeout = std::chrono::seconds(30);
  /// When a link to a tag that is out of range is given up.
  std::chrono::nanoseconds supervisionTimeout = std::chrono::seconds(4);
  /// The pause after a failed attempt to connect: doubled each time from the first up to the
  /// second, then varied by up to a quarter.
  std::chrono::nanoseconds retryFirst = std::chrono::milliseconds(250);
  std::chrono::nanoseconds retryMost = std::chrono::seconds(5);

  /// Takes the library's log; absent means standard error.
  std::shared_ptr<KVLog> log{};
};

/// The loss of signal on the way, in dB, as a function of the time since the radio was made.
using PathLoss = std::function<double(std::chrono::nanoseconds sinceStart)>;

/// One point of a path.
struct PathPoint {
  std::chrono::nanoseconds at{0};
  double loss = 0;  ///< in dB
};

/// A path through points in the order of their times: straight lines between them, level before the
/// first and after the last.
PathLoss pathThrough(std::vector<PathPoint> points);

/// One entry of service data, owned.
struct RawServiceData {
  KVUUID uuid;
  KVData value;
};

/// A simulated radio with its tags, and a whole platform around it.
///
///     kvsim::SimulatedRadio radio;
///     auto tag = radio.addTag({.address = "a1b2c3d4e5f6"});
///     KVPlatform::setCurrent(radio.platform());
///     // ... what the application does: start a scan, bind, ring ...
///     radio.clock().runFor(std::chrono::seconds(5));
///     EXPECT_TRUE(tag->state().bellRinging);
///
/// Each object is a world of its own: a process may have any number of them. It may be dropped
/// while its platform is still in use; the tags then stay where they are.
///
/// All operations are for the event thread, or for any thread while the queue is not running. What
/// they cause reaches the application as events, never inside the call.
class SimulatedRadio {
 public:
  explicit SimulatedRadio(const SimulatedRadioOptions& options = {});
  ~SimulatedRadio();
  SimulatedRadio(const SimulatedRadio&) = delete;
  SimulatedRadio& operator=(const SimulatedRadio&) = delete;

  /// A complete platform on this radio, the same one at each call: the queue, timers and calendar
  /// of the chosen clock, this radio, seeded randomness, and the Linux platform's cipher and
  /// patterns. A central that it makes has its events on this platform's queue and no other.
  std::shared_ptr<KVPlatform> platform() const;

  /// The event queue.
  KVEventQueue& queue() const;

  /// The virtual clock. Only with `ClockKind::Virtual`; with the real one the process ends.
  VirtualEventQueue& clock() const;

  // ---- Tags ----

  /// Makes a tag, 50 dB away, and puts it on the air.
  std::shared_ptr<VirtualTag> addTag(TagSpec spec = {}, TagBehaviour behaviour = {});

  /// Puts a tag on the air. One that was on the air before comes back as another radio device, as a
  /// tag does that has changed its radio address.
  void placeTag(const std::shared_ptr<VirtualTag>& tag);

  /// Takes a tag off the air: its link drops at once. Attempts to connect to it go on in vain.
  void removeTag(const std::shared_ptr<VirtualTag>& tag);

  std::size_t tagCount() const;

  // ---- The air; a tag that is not on the air is ignored ----

  void setPathLoss(const std::shared_ptr<VirtualTag>& tag, PathLoss loss);
  /// Sets a path loss that gives this signal strength, in dBm, from now on.
  void setRssi(const std::shared_ptr<VirtualTag>& tag, std::int64_t rssi);
  /// Takes a tag out of range, whatever its path, or back. Its advertisements get lost, and
  /// its link drops after the supervision time-out.
  void setInRange(const std::shared_ptr<VirtualTag>& tag, bool inRange);
  void setAir(const Air& air);

  /// Delivers one advertisement of the tag to every scan, in range or not, and none is lost.
  void advertise(const std::shared_ptr<VirtualTag>& tag);

  /// The same with any service data, in the order given, and any signal strength. As every tag, it
  /// names its service in its advertisement, so scans for that service report it whatever the data.
  void advertise(const std::shared_ptr<VirtualTag>& tag, std::vector<RawServiceData> serviceData,
                 std::optional<std::int64_t> rssi);

  /// Drops the tag's link, as a loss.
  void dropLink(const std::shared_ptr<VirtualTag>& tag);

  // ---- The adapter ----

  /// Changes the adapter's state. When it leaves `KVCentralStatePoweredOn`, scans end and links
  /// drop; requests to connect wait until it is back.
  void setAdapterState(KVCentralState state);

 private:
  class World;
  std::unique_ptr<World> world_;
};

}  // namespace kvsim

#endif  // KVFOBSIMULATOR_SIMULATEDRADIO_H

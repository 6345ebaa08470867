// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The value sets of a tracker's fields.
#ifndef KVFOBLINK_KVTRACKERTYPES_H
#define KVFOBLINK_KVTRACKERTYPES_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

/// `KVTracker::state`: the platform peripheral's own numbering. The manager also stores -1 in it,
/// which is none of these, when the adapter comes back on during a scan.
enum KVTrackerState : std::int64_t {
  KVTrackerStateDisconnected = 0,
  KVTrackerStateConnecting = 1,
  KVTrackerStateConnected = 2,  ///< The link is up; the tag has not accepted the password yet.
  KVTrackerStateDisconnecting = 3,
};

/// `KVTracker::connection`: what an application wants to know of the link.
enum KVConnection : std::uint64_t {
  KVConnectionDisconnect = 0,
  KVConnectionConnecting = 1,
  KVConnectionConnected = 2,              ///< The tag has accepted the password: commands work.
  KVConnectionVerifyFailed = UINT64_MAX,  ///< The tag rejected the password on a reconnect.
};

/// `KVTracker::auth`: the stage of the handshake.
enum KVAuthStage : std::uint64_t {
  KVAuthNone = 0,           ///< The next value on the command characteristic opens the handshake.
  KVAuthTokenReceived = 1,  ///< The tag's token has arrived.
  KVAuthTokenWritten = 2,   ///< The verification token has been written.
  KVAuthBindWritten = 3,    ///< The opening value was short: the password went out at once.
  KVAuthTokenChecked = 4,   ///< The verification token was confirmed, and the password went out.
};

/// `KVTracker::distance`: proximity, from the signal strength alone.
enum KVDistance : std::uint64_t {
  KVDistanceFar = 2,     ///< -70 dBm or weaker.
  KVDistanceMiddle = 3,  ///< Stronger than -70 dBm, up to -65 dBm.
  KVDistanceNear = 4,    ///< Stronger than -65 dBm.
};

/// The key of `KVTracker::updateData`, and the kind of value that goes with it.
enum KVTrackerDataKey : std::int64_t {
  KVTrackerDataMac = 1,        ///< text
  KVTrackerDataName = 2,       ///< text
  KVTrackerDataRssi = 3,       ///< number, dBm; recomputes the distance
  KVTrackerDataBattery = 4,    ///< number
  KVTrackerDataRadioTx = 5,    ///< number, dBm
  KVTrackerDataAdvUpdate = 6,  ///< point in time
  KVTrackerDataModel = 7,      ///< number
};

/// The value of `KVTracker::updateData`. An absent number counts as 0; an absent text or date
/// clears its field.
using KVTrackerValue =
    std::variant<std::monostate, std::string, std::int64_t, std::chrono::system_clock::time_point>;

#endif  // KVFOBLINK_KVTRACKERTYPES_H

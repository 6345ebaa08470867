// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// How a virtual tag deviates from a good one.
#ifndef KVFOBSIMULATOR_TAGBEHAVIOUR_H
#define KVFOBSIMULATOR_TAGBEHAVIOUR_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>

namespace kvsim {

/// What a client does with a tag, from an advertisement to an answered command, in this order: the
/// GAP and GATT procedures, and the tag's own answers.
enum class Procedure {
  Connecting,
  ServiceDiscovery,
  CharacteristicDiscovery,
  InformationRead,  ///< Reading any characteristic but the command characteristic.
  Subscribe,        ///< Subscribing to the command characteristic.
  OpeningRead,      ///< Reading the command characteristic.
  TokenWrite,       ///< The write that carries the other side's half of the session key.
  BindWrite,        ///< The write that carries the password.
  BindAnswer,       ///< The tag has taken the password in and is about to answer.
  CommandWrite,     ///< The write of any later command.
  CommandAnswer,    ///< The tag has carried a command out and is about to answer.
  DistanceWrite,    ///< The write of the distance byte.
  RssiRead,         ///< Reading the signal strength of the live link.
};

/// The former name.
using RoadStep [[deprecated("use Procedure")]] = Procedure;

/// What goes wrong at a step, which is one procedure.
enum class StepFault {
  /// The link drops. At `Connecting`: the attempt fails.
  Drop,
  /// The request is answered with an error. At `Connecting`: the attempt fails. At the two answers
  /// and at `Subscribe`, which have no error to answer with: as `Mute`.
  Fail,
  /// No answer ever comes. A request that is not answered holds up those behind it, and the radio
  /// ends the link when it has waited long enough; an attempt to connect is given up in the end.
  Mute,
  /// The answer is late by `after`.
  Delay,
  /// At `Connecting` only: the standing request itself fails, for good.
  Refuse,
};

/// Stands for "each time".
inline constexpr unsigned kAlways = std::numeric_limits<unsigned>::max();

/// One fault at one step.
struct StepBehaviour {
  StepFault fault = StepFault::Drop;
  /// How many times the fault shows before the step goes well again; counted down in place.
  unsigned times = kAlways;
  /// How long after the step is reached the fault shows, or the answer comes.
  std::chrono::nanoseconds after{0};
  /// The error of the Attribute Protocol that `Fail` answers with (0x0E: unlikely error).
  std::uint8_t attError = 0x0E;
};

/// What is wrong with an answer frame.
enum class AnswerFault {
  None,
  Corrupt,      ///< One bit of the encrypted frame is flipped, so all of it decrypts to noise.
  SecondType,   ///< The frame has type 0xFF in place of 0x01.
  UnknownType,  ///< The frame has type 0x02.
  WrongLength,  ///< The length byte claims one byte more than a frame can hold.
  ZeroLength,   ///< The length byte is 0.
  NoPayload,    ///< The status byte is left out, which counts as success.
  Short,        ///< The last byte of the encrypted frame is missing.
  Long,         ///< The encrypted frame has one byte too many.
  Unencrypted,  ///< The frame is sent in the clear.
  WrongKey,     ///< The frame is encrypted under the fixed key in place of the session key.
  OtherCode,    ///< The frame answers a command that does not exist (code 0x7E).
  Replay,       ///< The answer before this one is sent again, byte for byte; the first is muted.
};

/// How one command is answered.
struct CommandBehaviour {
  /// The command is not carried out and no answer comes.
  bool mute = false;
  /// The status to answer with in place of the true one. With any status but 0 the command is
  /// refused: not carried out.
  std::optional<std::uint8_t> status{};
  AnswerFault fault = AnswerFault::None;
};

/// All knobs of a virtual tag. The default is a good tag.
///
///     tag->behaviour().steps[Procedure::Subscribe] = {.fault = StepFault::Drop, .times = 2};
///     tag->behaviour().commands[kBellCommand] = {.status = 1};
struct TagBehaviour {
  std::map<Procedure, StepBehaviour> steps{};
  /// By command code.
  std::map<std::uint8_t, CommandBehaviour> commands{};

  /// How long the tag thinks before it answers a command.
  std::chrono::nanoseconds answerDelay{0};
  /// Each notification is sent twice.
  bool duplicateNotifications = false;
  /// The size of the opening value in bytes. With less than 16 there is no exchange of tokens: the
  /// tag expects the password under the session key of the connection before.
  std::size_t openingLength = 16;

  bool commandService = true;  ///< Whether the tag has its command service.
  /// How many command characteristics that service has.
  unsigned commandCharacteristics = 1;
  bool secondService = true;           ///< Whether the tag has its second vendor service.
  bool distanceCharacteristic = true;  ///< Whether that has the characteristic for the distance.
  bool informationService = true;      ///< Whether the tag has the Device Information service.

  /// A tag is silent while it is connected; this one goes on advertising.
  bool advertisesWhileConnected = false;
};

}  // namespace kvsim

#endif  // KVFOBSIMULATOR_TAGBEHAVIOUR_H

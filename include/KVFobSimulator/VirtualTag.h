// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The device side of a key-finder tag.
#ifndef KVFOBSIMULATOR_VIRTUALTAG_H
#define KVFOBSIMULATOR_VIRTUALTAG_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "KVFobLink/KVTypes.h"
#include "KVFobLink/KVUUID.h"
#include "KVFobSimulator/TagBehaviour.h"

namespace kvsim {

/// The commands that a tag knows, and the one frame that it sends on its own.
inline constexpr std::uint8_t kBellCommand = 5;
inline constexpr std::uint8_t kButtonEvent = 13;
inline constexpr std::uint8_t kBindCommand = 19;
inline constexpr std::uint8_t kRemovePasswordCommand = 20;
inline constexpr std::uint8_t kAlertCommand = 30;
inline constexpr std::uint8_t kDelayCommand = 32;

/// What a tag is.
struct TagSpec {
  /// 12 hexadecimal digits, most significant byte first, in either letter case. Anything else
  /// counts as 000000000000.
  std::string address = "a1b2c3d4e5f6";
  /// 0 to 255; absent leaves it out of the advertisement, which is then 10 bytes long, not 11.
  std::optional<std::uint8_t> model = std::uint8_t{3};
  /// 0x0B and 0x0C are what this kind of tag has.
  std::uint8_t product = 0x0B;
  std::uint8_t battery = 100;
  /// The transmit power in dBm, as advertised and as the simulated radio takes it.
  std::int8_t transmitPower = -12;
  /// The password that the tag is bound with, 1 to 13 bytes. Absent means not bound: the first bind
  /// request sets it.
  std::optional<std::string> password{};
};

/// What a tag has been through. The settings last as long as the tag; those that a link carries are
/// marked.
struct TagState {
  bool connected = false;   ///< A link is up.
  bool subscribed = false;  ///< This link: the command characteristic has a subscriber.
  bool bound = false;       ///< This link: the password has been accepted.
  bool bellRinging = false;
  bool alertOn = false;
  std::uint16_t lossDelay = 0;          ///< 0 to 7000, in the firmware's own unit.
  std::optional<std::int8_t> distance;  ///< The last distance byte: 0, -8 or -20 from good clients.
  bool passwordSet = false;
  unsigned connects = 0;  ///< How many links came up.
  unsigned sessions = 0;  ///< How many of them got as far as an accepted password.
  /// How often each command was understood, by code, whatever became of it.
  std::map<std::uint8_t, unsigned> commands;
  /// The payload with which each command but the bind request was last carried out, by code.
  std::map<std::uint8_t, KVData> settings{};
  unsigned rejected = 0;  ///< How many writes could not be understood.
};

enum class TagEventKind {
  Connected,
  Disconnected,
  Subscribed,
  Unsubscribed,
  OpeningSent,       ///< `plain` is the opening value before encryption.
  TokenAccepted,     ///< `plain` is the decrypted token.
  TokenRejected,     ///< `text` says what is wrong with it.
  PasswordAccepted,  ///< `plain` is the decrypted frame, and so it is in the next four.
  PasswordRejected,
  CommandReceived,
  CommandRefused,
  FrameRejected,    ///< A write that could not be understood; `text` says why.
  AnswerSent,       ///< A frame of the tag, an answer or the button.
  DistanceWritten,  ///< The raw distance byte, which is not encrypted.
  RawSent,          ///< What `inject` sent.
};

/// One thing that happened at the tag.
struct TagEvent {
  TagEventKind kind = TagEventKind::Connected;
  /// What it means, in plain English: "ring the bell". Never a password or a key.
  std::string text{};
  /// The bytes as they went over the air; empty when none did.
  KVData wire{};
  /// The same before encryption, or after decryption. Holds a password in `PasswordAccepted` and
  /// `PasswordRejected` and half a session key in the tokens.
  KVData plain{};
};

/// Names one characteristic of a tag. Handles tell apart two of the same UUID.
using GattHandle = std::uint16_t;

/// One characteristic as a tag offers it.
struct GattCharacteristic {
  GattHandle handle = 0;
  KVUUID uuid;
  bool readable = false;
  bool writable = false;  ///< With response.
  bool notifies = false;
};

/// One service as a tag offers it.
struct GattService {
  KVUUID uuid;
  std::vector<GattCharacteristic> characteristics;
};

/// How a tag answers a request.
struct GattAnswer {
  /// An error of the Attribute Protocol; 0 is success.
  std::uint8_t attError = 0;
  KVData value{};
  /// How much later than usual the answer is to be given.
  std::chrono::nanoseconds delay{0};
};

/// What carries the tag's own words to whoever is connected to it. A radio implements it.
class TagLink {
 public:
  virtual ~TagLink() = default;

  /// Sends a notification once `delay` has passed. Never calls the tag before it returns.
  virtual void notify(GattHandle characteristic, KVData value, std::chrono::nanoseconds delay) = 0;

  /// Ends the link once `delay` has passed, as a loss would. Never calls the tag before it returns.
  virtual void drop(std::chrono::nanoseconds delay) = 0;
};

/// A key-finder tag: its advertisement, its attributes, its side of the handshake and of the
/// commands.
///
/// It knows nothing of radios: whoever puts it on the air calls the operations under "The radio's
/// side" and implements `TagLink`. `SimulatedRadio` does that. It reads what it is sent with code
/// of its own, so a client library that talks to it has been checked against a second
/// implementation.
///
/// One thread at a time. An observer may call anything on the tag but the radio's side.
class VirtualTag {
 public:
  using Observer = std::function<void(const TagEvent& event)>;
  /// Fills a buffer with random bytes.
  using RandomSource = std::function<void(std::span<std::uint8_t> bytes)>;

  /// @param random  Where the opening value and the fill of frames come from; absent means the
  ///                system's own randomness.
  explicit VirtualTag(TagSpec spec, TagBehaviour behaviour = {}, RandomSource random = {});
  ~VirtualTag();
  VirtualTag(const VirtualTag&) = delete;
  VirtualTag& operator=(const VirtualTag&) = delete;

  const TagSpec& spec() const;
  /// The address, cleaned: 12 lower-case hexadecimal digits.
  const std::string& address() const;
  const TagState& state() const;

  /// The knobs; changes count from now on, those of the layout from the next service discovery on.
  TagBehaviour& behaviour();
  const TagBehaviour& behaviour() const;

  /// Changes what the advertisement says.
  void setBattery(std::uint8_t battery);

  /// Calls `observer` at each event, in place of an earlier one; absent ends that.
  void setObserver(Observer observer);

  /// The button: sends the frame with code 13. Without a session nothing happens.
  void pressButton();

  /// Sends raw bytes as a notification of the command characteristic, at any time while a client is
  /// subscribed; else nothing happens.
  void inject(KVBytes bytes);

  /// Sends a frame of type 0x01 with any code and up to 13 bytes of payload, encrypted as an answer
  /// is. Without a session key, without a subscriber and with a longer payload nothing happens.
  void sendFrame(std::uint8_t code, KVBytes payload);

  // ---- The radio's side ----

  /// The service data that the tag advertises under `serviceDataUuid`: 10 or 11 bytes. Holds until
  /// the next change of the tag.
  KVBytes advertisement() const;
  static const KVUUID& serviceDataUuid();

  /// The services as the layout knobs have them.
  std::vector<GattService> services() const;

  /// What is to become of a step that the radio alone sees (`Connecting`, `ServiceDiscovery`,
  /// `CharacteristicDiscovery`, `RssiRead`); absent means that it goes well. Counts the fault down.
  /// The tag sees to the other steps itself.
  std::optional<StepBehaviour> reach(Procedure step);

  /// A link came up. `link` must live until `disconnect`.
  void connect(TagLink& link);
  /// The link ended. Without one nothing happens.
  void disconnect();

  /// Requests on the link. Absent means that no answer comes: the tag is mute or has dropped the
  /// link.
  std::optional<GattAnswer> read(GattHandle characteristic);
  std::optional<GattAnswer> write(GattHandle characteristic, KVBytes value);
  std::optional<GattAnswer> subscribe(GattHandle characteristic, bool enabled);

 private:
  class Device;
  std::unique_ptr<Device> device_;
};

}  // namespace kvsim

#endif  // KVFOBSIMULATOR_VIRTUALTAG_H

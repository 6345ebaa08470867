// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <utility>

#include "simulator/tag/device.h"

namespace kvsim {
namespace {

constexpr std::uint8_t kAnswerType = 0x01;
constexpr std::uint8_t kRefused = 0x01;
constexpr std::uint8_t kTokenError = 0x80;  // the first of the application's own errors
constexpr std::uint16_t kLongestDelay = 7000;
constexpr std::size_t kHalfAt = 6;  // where both tokens have their half of the key
constexpr std::size_t kHalfSize = 8;
constexpr std::size_t kChecksumAt = kHalfAt + kHalfSize;

KVData toData(KVBytes bytes) { return {bytes.begin(), bytes.end()}; }

std::uint16_t delayOf(KVBytes payload) {
  return static_cast<std::uint16_t>(payload[0] | payload[1] << 8);
}

// On is 0x00 and off is 0x01.
bool isOn(KVBytes payload) { return payload[0] == 0x00; }
bool isSwitch(KVBytes payload) { return payload.size() == 1 && payload[0] <= 0x01; }

// One command of a bound tag: all that the tag knows of it.
struct Command {
  std::uint8_t code;
  std::string (*meaning)(KVBytes payload);
  // False refuses the payload.
  bool (*carryOut)(KVBytes payload, TagSpec& spec, TagState& state);
};

const Command kCommands[] = {
    {kBellCommand,
     [](KVBytes payload) -> std::string {
       return isOn(payload) ? "ring the bell" : "silence the bell";
     },
     [](KVBytes payload, TagSpec&, TagState& state) {
       if (isSwitch(payload)) state.bellRinging = isOn(payload);
       return isSwitch(payload);
     }},
    {kAlertCommand,
     [](KVBytes payload) -> std::string {
       return isOn(payload) ? "switch the loss alert on" : "switch the loss alert off";
     },
     [](KVBytes payload, TagSpec&, TagState& state) {
       if (isSwitch(payload)) state.alertOn = isOn(payload);
       return isSwitch(payload);
     }},
    {kDelayCommand,
     [](KVBytes payload) -> std::string {
       if (payload.size() < 2) return "set the loss delay";
       return "set the loss delay to " + std::to_string(delayOf(payload));
     },
     [](KVBytes payload, TagSpec&, TagState& state) {
       if (payload.size() != 2 || delayOf(payload) > kLongestDelay) return false;
       state.lossDelay = delayOf(payload);
       return true;
     }},
    {kRemovePasswordCommand, [](KVBytes) -> std::string { return "remove the password"; },
     [](KVBytes payload, TagSpec& spec, TagState& state) {
       if (payload.size() != 1 || payload[0] != 0x00) return false;
       spec.password.reset();
       state.passwordSet = false;
       return true;
     }},
};

const Command* commandOf(std::uint8_t code) {
  const auto* const found = std::ranges::find(kCommands, code, &Command::code);
  return found == std::end(kCommands) ? nullptr : found;
}

std::string meaning(const Request& request) {
  if (request.code == kBindCommand) return "bind with a password";
  const Command* const command = commandOf(request.code);
  return command != nullptr ? command->meaning(request.payload)
                            : "unknown command " + std::to_string(request.code);
}

}  // namespace

std::optional<GattAnswer> VirtualTag::Device::writeCommand(GattHandle handle, KVBytes value) {
  const Procedure step = stage_ == Stage::Token  ? Procedure::TokenWrite
                         : stage_ == Stage::Bind ? Procedure::BindWrite
                                                 : Procedure::CommandWrite;
  Gate gate = enter(step);
  if (!gate.open) return gate.answer;
  // A client may run the whole handshake again on a link that is up.
  if (stage_ == Stage::Token || (opening_ && asToken(value))) {
    if (!takeToken(value)) gate.answer->attError = kTokenError;
  } else {
    takeFrame(handle, value);
  }
  return gate.answer;
}

// The plain token if it is one for this tag.
std::optional<Block> VirtualTag::Device::asToken(KVBytes value) const {
  const std::optional<Block> wire = toBlock(value);
  if (!wire) return std::nullopt;
  const Block plain = decryptBlock(kFixedKey, *wire);
  const unsigned sum = static_cast<unsigned>(plain[kChecksumAt]) << 8 | plain[kChecksumAt + 1];
  const bool ours = std::equal(address_.begin(), address_.end(), plain.begin());
  if (!ours || sum != tokenChecksum(KVBytes(plain).first(kChecksumAt))) return std::nullopt;
  return plain;
}

bool VirtualTag::Device::takeToken(KVBytes value) {
  const std::optional<Block> plain = asToken(value);
  if (!plain || !opening_) {
    ++state_.rejected;
    emit(TagEventKind::TokenRejected,
         !opening_            ? "a token before the opening value was read"
         : value.size() != 16 ? "a token that is not 16 bytes long"
                              : "a token with a wrong address or checksum",
         toData(value));
    return false;
  }
  Block key;
  std::copy_n(opening_->begin() + kHalfAt, kHalfSize, key.begin());
  std::copy_n(plain->begin() + kHalfAt, kHalfSize, key.begin() + kHalfSize);
  sessionKey_ = key;
  stage_ = Stage::Bind;
  state_.bound = false;
  emit(TagEventKind::TokenAccepted, "token with the client's half of the key", toData(value),
       toData(*plain));
  return true;
}

void VirtualTag::Device::rejectFrame(std::string text, KVBytes value, KVData plain) {
  ++state_.rejected;
  emit(TagEventKind::FrameRejected, std::move(text), toData(value), std::move(plain));
}

void VirtualTag::Device::takeFrame(GattHandle handle, KVBytes value) {
  const std::optional<Block> wire = toBlock(value);
  if (!wire) return rejectFrame("a frame that is not 16 bytes long", value, {});
  if (!sessionKey_) return rejectFrame("a frame before there is a session key", value, {});
  const Block plain = decryptBlock(*sessionKey_, *wire);
  const std::optional<Request> request = parseRequest(plain);
  if (!request) return rejectFrame("not a frame, or under another key", value, toData(plain));
  ++state_.commands[request->code];

  const auto found = behaviour_.commands.find(request->code);
  static const CommandBehaviour kOrdinary;
  const CommandBehaviour& knobs = found == behaviour_.commands.end() ? kOrdinary : found->second;
  // Read now: the observer that is told below may change the behaviour.
  const bool mute = knobs.mute;
  const bool told = knobs.status.has_value();
  const std::uint8_t toldStatus = knobs.status.value_or(0);
  const bool binding = request->code == kBindCommand;
  bool done = !mute && toldStatus == 0;
  if (done) done = binding ? bind(*request, /*anyPassword=*/told) : carryOut(*request);
  const TagEventKind kind =
      binding ? (done ? TagEventKind::PasswordAccepted : TagEventKind::PasswordRejected)
              : (done ? TagEventKind::CommandReceived : TagEventKind::CommandRefused);
  emit(kind, meaning(*request), toData(value), toData(plain));
  if (mute) return;
  answer(handle, request->code, told ? toldStatus : (done ? std::uint8_t{0} : kRefused));
}

bool VirtualTag::Device::bind(const Request& request, bool anyPassword) {
  const std::string password(request.payload.begin(), request.payload.end());
  if (!spec_.password) {
    spec_.password = password;
    state_.passwordSet = true;
  }
  if (password != *spec_.password && !anyPassword) return false;
  stage_ = Stage::Bound;
  state_.bound = true;
  ++state_.sessions;
  return true;
}

bool VirtualTag::Device::carryOut(const Request& request) {
  const Command* const command = commandOf(request.code);
  if (stage_ != Stage::Bound || command == nullptr) return false;
  if (!command->carryOut(request.payload, spec_, state_)) return false;
  state_.settings[request.code] = request.payload;
  return true;
}

void VirtualTag::Device::answer(GattHandle handle, std::uint8_t code, std::uint8_t status) {
  if (link_ == nullptr || !sessionKey_) return;  // an observer may have ended it
  std::chrono::nanoseconds delay = behaviour_.answerDelay;
  if (const auto fault =
          reach(code == kBindCommand ? Procedure::BindAnswer : Procedure::CommandAnswer)) {
    if (fault->fault == StepFault::Drop) return link_->drop(fault->after);
    if (fault->fault != StepFault::Delay) return;
    delay += fault->after;
  }
  const auto found = behaviour_.commands.find(code);
  const AnswerFault fault =
      found == behaviour_.commands.end() ? AnswerFault::None : found->second.fault;
  Block plain{};
  const std::optional<KVData> wire = faultyAnswer(fault, code, status, plain);
  if (!wire || !subscribed_.contains(handle)) return;
  send(handle, *wire, delay);
  emit(TagEventKind::AnswerSent,
       "answer to command " + std::to_string(code) + ", status " + std::to_string(status), *wire,
       toData(plain));
}

// The bytes to send, and what they are in the clear; absent to send nothing.
std::optional<KVData> VirtualTag::Device::faultyAnswer(AnswerFault fault, std::uint8_t code,
                                                       std::uint8_t status, Block& plain) {
  const std::array<std::uint8_t, 1> payload = {status};
  plain = frame(kAnswerType, code, payload, randomBlock());
  if (fault == AnswerFault::SecondType) plain[0] = 0xFF;
  if (fault == AnswerFault::UnknownType) plain[0] = 0x02;
  if (fault == AnswerFault::WrongLength) plain[1] = 15;
  if (fault == AnswerFault::ZeroLength) plain[1] = 0;
  if (fault == AnswerFault::NoPayload) plain[1] = 1;
  if (fault == AnswerFault::OtherCode) plain[2] = 0x7E;
  KVData wire = toData(encryptBlock(*sessionKey_, plain));
  const KVData before = std::exchange(lastAnswer_, wire);
  if (fault == AnswerFault::Corrupt) wire[0] ^= 0x01;
  if (fault == AnswerFault::Short) wire.pop_back();
  if (fault == AnswerFault::Long) wire.push_back(0);
  if (fault == AnswerFault::Unencrypted) wire = toData(plain);
  if (fault == AnswerFault::WrongKey) wire = toData(encryptBlock(kFixedKey, plain));
  if (fault != AnswerFault::Replay) return wire;
  lastAnswer_ = before;
  return before.empty() ? std::nullopt : std::optional(before);
}

void VirtualTag::Device::send(GattHandle handle, const KVData& wire,
                              std::chrono::nanoseconds delay) {
  link_->notify(handle, wire, delay);
  if (behaviour_.duplicateNotifications) link_->notify(handle, wire, delay);
}

void VirtualTag::Device::sendFrame(std::uint8_t code, KVBytes payload, const std::string& text) {
  if (link_ == nullptr || !sessionKey_ || subscribed_.empty() || payload.size() > 13) return;
  const Block plain = frame(kAnswerType, code, payload, randomBlock());
  const KVData wire = toData(encryptBlock(*sessionKey_, plain));
  send(*subscribed_.begin(), wire, std::chrono::nanoseconds(0));
  emit(TagEventKind::AnswerSent, text, wire, toData(plain));
}

}  // namespace kvsim

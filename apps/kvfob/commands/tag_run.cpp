// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/commands/tag_run.h"

#include <algorithm>
#include <utility>

#include "KVFobLink/KVBluetoothError.h"
#include "apps/kvfob/base/tag_facts.h"
#include "apps/kvfob/base/text.h"

namespace kvfob {
namespace {

// Whether the tag has said nothing: the way to it failed, or it was not ready, and may be the next
// time.
bool isSilence(std::int64_t code) {
  return code == kBindTimedOut || code == KVBluetoothErrorLinkLost ||
         code == KVBluetoothErrorAdapterLost || code == KVBluetoothErrorLinkGivenUp ||
         code == KVBluetoothErrorConnectFailed;
}

std::string seconds(std::chrono::milliseconds time) {
  auto text = std::to_string(static_cast<double>(time.count()) / 1000);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text + " s";
}

}  // namespace

TagRun::TagRun(Session& session, const Options& options, std::function<PasswordResult()> password,
               std::string name)
    : session_(session),
      options_(options),
      password_(std::move(password)),
      name_(std::move(name)) {}

Outcome TagRun::run() {
  session_.whenOn([this] { begin(); }, options_.timeout);
  session_.atEnd([this] { screen_.reset(); });
  return session_.run();
}

void TagRun::begin() {
  if ((tracker_ = session_.linked())) return goOn();
  auto password = password_();
  if (auto* failure = std::get_if<Outcome>(&password)) {
    return session_.finish(std::move(*failure));
  }
  session_.manager().setPassword(std::get<Secret>(password).text());
  search();
}

// With the link that is there.
void TagRun::goOn() {
  tracker_->didConnectionChange([this](std::uint64_t value) { connectionChanged(value); });
  session_.after(options_.timeout, [this] { timedOut(); });
  openScreen();
  stage_ = Stage::Connecting;
  connected();
}

void TagRun::search() {
  session_.after(options_.timeout, [this] { timedOut(); });
  if (options_.command != Command::Bind) {
    tracker_ = session_.manager().addTracker(options_.tag);
    session_.dropInTheEnd(tracker_);
    tracker_->didConnectionChange([this](std::uint64_t value) { connectionChanged(value); });
  }
  openScreen();
  // A bound tag is connected as soon as it advertises.
  session_.manager().startScan([this](const KVTrackers& trackers) { scanned(trackers); });
}

void TagRun::openScreen() {
  // The library's lines would be written across a screen.
  if (options_.command == Command::Watch && session_.console().live() && !options_.json &&
      options_.log == LogLevel::Off) {
    screen_ = std::make_unique<WatchScreen>(session_, tracker_, name_);
  }
}

void TagRun::scanned(const KVTrackers& trackers) {
  if (options_.command != Command::Bind || tracker_) return;
  const auto found = std::find_if(trackers.begin(), trackers.end(),
                                  [this](const auto& t) { return t->mac() == options_.tag; });
  if (found != trackers.end()) bind(*found);
}

void TagRun::bind(const std::shared_ptr<KVTracker>& tracker) {
  tracker_ = tracker;
  stage_ = Stage::Connecting;
  asked_ = true;
  session_.dropInTheEnd(tracker_);
  session_.manager().stopScan();
  session_.manager().bindingVerify(
      tracker_, [this](bool success, const auto& error) { answered(success, error); });
}

void TagRun::connectionChanged(std::uint64_t connection) {
  if (session_.finished()) return;
  if (stage_ == Stage::Watching && connection != KVConnectionVerifyFailed) {
    return reportConnection(connection);
  }
  switch (connection) {
    case KVConnectionConnecting:
      // The radio can do either better alone, and an advertisement from before the link came up
      // must not ask for another.
      session_.manager().stopScan();
      [[fallthrough]];
    case KVConnectionDisconnect:
      stage_ = Stage::Connecting;
      break;
    case KVConnectionConnected:
      connected();
      break;
    default:
      session_.finish({kRefused, "tag " + options_.tag + " refused the password; give the one it " +
                                     "was bound with"});
  }
}

void TagRun::connected() {
  if (stage_ != Stage::Connecting) return;  // it is reported twice on some occasions
  if (options_.command == Command::Watch) return watch();
  stage_ = Stage::Asking;
  act();
}

void TagRun::act() {
  const auto answer = [this](bool success, const auto& error) { answered(success, error); };
  switch (options_.command) {
    case Command::Ring:
    case Command::Silence:
      return tracker_->switchBellStatus(options_.command == Command::Ring, answer);
    case Command::Alert:
      return tracker_->writeLossAlert(options_.on, answer);
    case Command::Delay:
      return tracker_->writeLossDelay(options_.delay, answer);
    case Command::Distance:
      return tracker_->writeLossDistance(options_.level, answer);
    case Command::Unbind:
      return session_.manager().unbindTracker(options_.tag, answer);
    default:
      session_.finish({kInternal, "not a command on a tag"});
  }
}

void TagRun::answered(bool success, const std::optional<KVError>& error) {
  if (session_.finished()) return;
  if (success) return session_.finish({});
  if (options_.command == Command::Bind && error && isSilence(error->code)) return searchAnew();
  const auto why = error.value_or(KVError{.domain = "no reason given", .userInfo = {}});
  const bool binding = options_.command == Command::Bind;
  const auto hint =
      binding ? "; a tag that is bound takes only the password it was bound with" : "";
  session_.finish({kRefused, "tag " + options_.tag + " refused: " + why.domain + " (code " +
                                 std::to_string(why.code) + ")" + hint});
}

void TagRun::searchAnew() {
  session_.manager().disconnect(std::exchange(tracker_, nullptr));
  stage_ = Stage::Searching;
  session_.manager().startScan([this](const KVTrackers& trackers) { scanned(trackers); });
}

void TagRun::timedOut() {
  const auto tag = "tag " + options_.tag;
  const auto within = " within " + seconds(options_.timeout);
  switch (stage_) {
    case Stage::Searching:
      return session_.finish(
          {kNotFound, tag + " was not heard" + within +
                          "; bring it near, or check its address with \"scan\""});
    case Stage::Connecting:
      return session_.finish(
          {kTimedOut, tag + " was heard, but did not get ready" + within +
                          "; bring it near, and see that no other device is connected to it"});
    case Stage::Asking:
      return session_.finish({kTimedOut, tag + " did not answer" + within + "; try again"});
    case Stage::Watching:
      return;
  }
}

void TagRun::watch() {
  stage_ = Stage::Watching;
  session_.surviveAdapter();
  reportConnection(KVConnectionConnected);
  keeper_ = std::make_unique<LinkKeeper>(session_, tracker_, [this] {
    // A script is told of the connection alone.
    if (!options_.json) report(kBegunAgain, {});
  });
  if (options_.duration) session_.after(*options_.duration, [this] { session_.finish({}); });
  tracker_->didReceive([this](std::int64_t event) { reportEvent(event); });
  tracker_->didValueUpdate([this] { reportSignal(); });
}

void TagRun::reportEvent(std::int64_t event) {
  const bool press = event == 1;
  if (screen_ && press) return screen_->logPress();
  report(press ? "button pressed" : "event " + std::to_string(event),
         press ? Json{{"event", "button"}} : Json{{"event", "notification"}, {"code", event}});
}

void TagRun::reportSignal() {
  if (tracker_->connection() != KVConnectionConnected) return;
  if (screen_) return screen_->measured();
  const auto level = levelName(tracker_->distance());
  report("rssi " + std::to_string(tracker_->rssi()) + " dBm, " + std::string(level),
         {{"event", "signal"}, {"rssi", tracker_->rssi()}, {"distance", level}});
}

void TagRun::reportConnection(std::uint64_t connection) {
  // Some values are reported twice.
  if (std::exchange(reported_, connection) == connection) return;
  const auto state = [&](const char* shown, const char* word) {
    report(shown, {{"event", "connection"}, {"state", word}});
  };
  if (connection == KVConnectionConnected) state("connected", "connected");
  if (connection == KVConnectionConnecting) state("connecting", "connecting");
  if (connection == KVConnectionDisconnect) state("connection lost", "disconnected");
}

void TagRun::report(const std::string& what, Json event) {
  if (screen_) return screen_->log(what);
  const auto now = KVPlatform::current().clock->now();
  auto& console = session_.console();
  if (options_.json) {
    event["time"] = isoTime(now);
    event["address"] = options_.tag;
    return console.line(jsonLine(event));
  }
  console.line(console.styled(Style::Dim, clockTime(now)) + "  " + what);
}

}  // namespace kvfob

#include "apps/kvfob/run.h"

#include <iostream>
#include <utility>
#include <variant>

#include "apps/kvfob/air_run.h"
#include "apps/kvfob/decode/decode.h"
#include "apps/kvfob/demo.h"
#include "apps/kvfob/radio.h"
#include "apps/kvfob/scan.h"
#include "apps/kvfob/session.h"
#include "apps/kvfob/tag_run.h"

namespace kvfob {
namespace {

Outcome runDemo(const Options& options, const SignalFd& signals, Console& console) {
  console.line(console.styled(Style::dim, "simulated radio: nothing goes over the air"));
  kvsim::SimulatedRadioOptions radio;
  radio.seed = options.seed;
  radio.clock = options.instant ? kvsim::ClockKind::Virtual : kvsim::ClockKind::Real;
  radio.advertisingInterval = std::chrono::milliseconds(200);
  radio.log = makeLog(options.log);
  kvsim::SimulatedRadio simulated(radio);
  const PlatformInForce platform(simulated.platform());
  Loop loop(simulated.platform()->eventQueue, signals);
  return Demo(simulated, options.instant ? nullptr : &loop, console).run();
}

Outcome runAir(const Options& options, const Secret& password, const SignalFd& signals,
               Console& console) {
  console.note("radio: bluez, adapter " + options.adapter);
  const auto queue = KVLinuxPlatform::makeEventQueue();
  Loop loop(queue, signals);
  return AirRun(queue, loop, console, options, password).run();
}

Outcome runOnRadio(const Options& options, const Secret& password, const SignalFd& signals,
                   Console& console) {
  Radio radio(options);
  console.note("radio: " + radio.description());
  Loop loop(radio.queue(), signals);
  Session session(loop, console);
  if (options.command == Command::scan) return runScan(session, options);
  return TagRun(session, options, password).run();
}

}  // namespace

Outcome runCommand(const Options& options, const SignalFd& signals, Console& console) {
  if (options.command == Command::demo) return runDemo(options, signals, console);
  if (options.command == Command::decode) {
    return decode(options.file, std::cin, options.showSecrets, console);
  }
  Secret password;
  const bool optional = options.command == Command::tag;
  if (options.command != Command::scan && !(optional && options.passwordFile.empty())) {
    auto result = readPassword(options.passwordFile, "Password of the tag: ");
    if (auto* failure = std::get_if<Outcome>(&result)) return *failure;
    password = std::move(std::get<Secret>(result));
  }
  if (options.command == Command::tag) return runAir(options, password, signals, console);
  return runOnRadio(options, password, signals, console);
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/commands/run.h"

#include <memory>
#include <optional>
#include <utility>
#include <variant>

#include "apps/kvfob/base/text.h"
#include "apps/kvfob/book/bindings.h"
#include "apps/kvfob/commands/air_run.h"
#include "apps/kvfob/commands/book_commands.h"
#include "apps/kvfob/commands/config.h"
#include "apps/kvfob/commands/doctor.h"
#include "apps/kvfob/commands/on_tags.h"
#include "apps/kvfob/commands/reported.h"
#include "apps/kvfob/decode/decode.h"
#include "apps/kvfob/demo/demo.h"
#include "apps/kvfob/radio/radio.h"
#include "apps/kvfob/radio/session.h"
#include "apps/kvfob/scan/scan.h"

namespace kvfob {
namespace {

Outcome runDemo(const Options& options, const SignalFd& signals, Console& console) {
  console.line(console.styled(Style::Dim, "simulated radio: nothing goes over the air"));
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

Outcome runAir(const Options& options, const SignalFd& signals, Console& console) {
  Secret password;
  if (!options.passwordFile.empty()) {
    auto read = readPassword(options.passwordFile);
    if (auto* failure = std::get_if<Outcome>(&read)) return std::move(*failure);
    password = std::move(std::get<Secret>(read));
  }
  console.note("radio: bluez, adapter " + options.adapter);
  const auto queue = KVLinuxPlatform::makeEventQueue();
  Loop loop(queue, signals);
  return reported("tag", {{"adapter", options.adapter}}, options, console,
                  [&] { return AirRun(queue, loop, console, options, password).run(); });
}

// A line that a later version of the program wrote is not worth a word each time.
void tellOfBadLines(const Book& book, Console& console) {
  for (const auto& remark : book.remarks()) {
    if (!remark.foreign) console.note(remark.text);
  }
}

// The book. A scan does without: nothing but the names is missing.
std::variant<Book, Outcome> readBook(const Options& options, Console& console) {
  auto read = Book::read();
  if (auto* failure = std::get_if<Outcome>(&read)) {
    if (options.command != Command::Scan) return read;
    console.note(failure->message);
    return Book();
  }
  tellOfBadLines(std::get<Book>(read), console);
  return read;
}

// What a scan knows of the book, which changes when it binds a tag.
ScanMemory memoryOf(const Options& options, const Book& book) {
  const auto latest = std::make_shared<std::optional<Book>>();
  const auto find = [&options, &book, latest](const std::string& address) {
    return (*latest ? **latest : book).find(options.radio, address);
  };
  return {.find = [find](const std::string& address) -> std::optional<ScanMemory::Tag> {
            const auto* entry = find(address);
            if (entry == nullptr) return std::nullopt;
            return ScanMemory::Tag{.name = entry->name,
                                   .bound = entry->binding == Binding::Bound,
                                   .saved = !entry->password.text().empty()};
          },
          .password =
              [find](const std::string& address) {
                const auto* entry = find(address);
                // One that is not bound would take it.
                const bool bound = entry != nullptr && entry->binding == Binding::Bound;
                return bound ? Secret(entry->password.text()) : Secret();
              },
          .begin =
              [&options](const std::string& address, const Secret& password, bool save) {
                return beginBinding(options.radio, address, "", password, save);
              },
          .end =
              [&options, latest](const std::string& address, bool bound) {
                auto outcome = endBinding(options.radio, address, bound);
                auto read = Book::read();
                if (auto* now = std::get_if<Book>(&read)) *latest = std::move(*now);
                return outcome;
              }};
}

Outcome scanWith(const Options& options, const Book& book, const Radio& radio, Loop& loop,
                 Console& console) {
  Session session(radio, loop, console);
  return runScan(session, options, memoryOf(options, book));
}

Outcome runOnNewRadio(const Options& options, const SignalFd& signals, Console& console) {
  const auto read = readBook(options, console);
  if (const auto* failure = std::get_if<Outcome>(&read)) return *failure;
  const auto& book = std::get<Book>(read);
  if (options.command != Command::Scan) return runOnTags(options, book, signals, console);
  const Radio radio(options);
  console.note("radio: " + radio.description());
  Loop loop(radio.queue(), signals);
  return scanWith(options, book, radio, loop, console);
}

}  // namespace

bool usesRadio(Command command) {
  switch (command) {
    case Command::Scan:
    case Command::Bind:
    case Command::Unbind:
    case Command::Ring:
    case Command::Silence:
    case Command::Alert:
    case Command::Delay:
    case Command::Distance:
    case Command::Watch:
      return true;
    default:
      return false;
  }
}

Outcome runOnRadio(const Options& options, const Radio& radio, Links& links) {
  const auto read = readBook(options, links.console());
  if (const auto* failure = std::get_if<Outcome>(&read)) return *failure;
  const auto& book = std::get<Book>(read);
  if (options.command != Command::Scan) return runOnTags(options, book, links);
  return scanWith(options, book, radio, links.loop(), links.console());
}

Outcome runCommand(const Options& options, const SignalFd& signals, Console& console) {
  switch (options.command) {
    case Command::Demo:
      return runDemo(options, signals, console);
    case Command::Decode:
      return decode(options, signals, console);
    case Command::Config:
      return runConfig(options, console);
    case Command::Doctor:
      return runDoctor(options, signals, console);
    case Command::List:
    case Command::Rename:
    case Command::Forget:
      return runOnBook(options, console);
    case Command::Tag:
      return runAir(options, signals, console);
    default:
      break;
  }
  auto outcome = runOnNewRadio(options, signals, console);
  if (outcome.code == kNoAdapter && options.radio == RadioKind::BlueZ) {
    outcome.message += "; \"kvfob doctor\" tells more, and --radio sim needs no Bluetooth";
  }
  return outcome;
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/commands/run.h"

#include <iostream>
#include <memory>
#include <optional>
#include <utility>
#include <variant>

#include "apps/kvfob/base/text.h"
#include "apps/kvfob/commands/air_run.h"
#include "apps/kvfob/commands/book_commands.h"
#include "apps/kvfob/commands/doctor.h"
#include "apps/kvfob/commands/tag_run.h"
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
    auto read = readPassword(options.passwordFile, "");
    if (auto* failure = std::get_if<Outcome>(&read)) return std::move(*failure);
    password = std::move(std::get<Secret>(read));
  }
  console.note("radio: bluez, adapter " + options.adapter);
  const auto queue = KVLinuxPlatform::makeEventQueue();
  Loop loop(queue, signals);
  return AirRun(queue, loop, console, options, password).run();
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
            return ScanMemory::Tag{entry->name, !entry->password.text().empty()};
          },
          .password =
              [find](const std::string& address) {
                const auto* entry = find(address);
                return entry == nullptr ? Secret() : Secret(entry->password.text());
              },
          .remember =
              [&options, latest](const std::string& address, const Secret& password, bool save) {
                auto binding = options;
                binding.savePassword = save;
                auto outcome = rememberBound(binding, address, password);
                auto read = Book::read();
                if (auto* now = std::get_if<Book>(&read)) *latest = std::move(*now);
                return outcome;
              }};
}

Outcome runOnRadio(const Options& options, const Secret& password, const Book& book,
                   const SignalFd& signals, Console& console) {
  Radio radio(options);
  console.note("radio: " + radio.description());
  Loop loop(radio.queue(), signals);
  Session session(loop, console);
  auto outcome =
      options.command == Command::Scan
          ? runScan(session, options, memoryOf(options, book))
          : TagRun(session, options, password, book.nameOf(options.radio, options.tag)).run();
  if (outcome.code == kNoAdapter && options.radio == RadioKind::BlueZ) {
    outcome.message += "; \"kvfob doctor\" tells more, and --radio sim needs no Bluetooth";
  }
  return outcome;
}

// The saved password, or else the one that is given or asked for.
PasswordResult passwordFor(const Options& options, const BookEntry* known) {
  if (options.passwordFile.empty() && known != nullptr && !known->password.text().empty()) {
    return Secret(known->password.text());
  }
  return readPassword(options.passwordFile, "Password of the tag: ");
}

// A command on the tag that the user means.
Outcome runOnTag(Options options, const Book& book, const SignalFd& signals, Console& console) {
  const auto* known = book.find(options.radio, options.tag);
  const auto address = known != nullptr ? known->address : parseAddress(options.tag);
  if (!address) return unknownTag(options);
  const auto* other = options.name.empty() ? nullptr : book.find(options.radio, options.name);
  if (other != nullptr && other->address != *address) return nameTaken(options.name, *other);
  options.tag = *address;

  const auto password = passwordFor(options, known);
  if (const auto* failure = std::get_if<Outcome>(&password)) return *failure;
  const auto& secret = std::get<Secret>(password);
  auto outcome = runOnRadio(options, secret, book, signals, console);
  if (outcome.code != kDone) return outcome;
  if (options.command == Command::Bind) return rememberBound(options, *address, secret);
  if (options.command == Command::Unbind) return rememberUnbound(options, *address);
  return outcome;
}

Outcome runWithBook(const Options& options, const SignalFd& signals, Console& console) {
  const auto read = Book::read();
  if (const auto* failure = std::get_if<Outcome>(&read)) return *failure;
  const auto& book = std::get<Book>(read);
  if (options.command != Command::Scan) return runOnTag(options, book, signals, console);
  return runOnRadio(options, Secret(), book, signals, console);
}

}  // namespace

Outcome runCommand(const Options& options, const SignalFd& signals, Console& console) {
  switch (options.command) {
    case Command::Demo:
      return runDemo(options, signals, console);
    case Command::Decode:
      return decode(options.file, std::cin, options.showSecrets, console);
    case Command::Doctor:
      return runDoctor(options, signals, console);
    case Command::List:
    case Command::Rename:
    case Command::Forget:
      return runOnBook(options, console);
    case Command::Tag:
      return runAir(options, signals, console);
    default:
      return runWithBook(options, signals, console);
  }
}

}  // namespace kvfob

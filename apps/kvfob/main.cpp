// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <csignal>
#include <string>
#include <variant>

#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/commands/run.h"
#include "apps/kvfob/shell/shell.h"
#include "apps/kvfob/terminal/console.h"
#include "apps/kvfob/terminal/signals.h"

int main(int argc, char** argv) {
  using namespace kvfob;
  std::string printed;
  const auto parsed = parseOptions(argc, argv, printed);
  const auto* options = std::get_if<Options>(&parsed);
  auto console = Console::standard(options != nullptr ? options->color : ColorMode::Automatic);
  // A reader that goes away must not end the program before its links are dropped.
  std::signal(SIGPIPE, SIG_IGN);
  // Before any thread is made, so that all of them leave these to the loop.
  const SignalFd signals({SIGINT, SIGTERM, SIGHUP});
  if (!printed.empty()) console.block(printed);
  const auto run = [&](const Options& chosen) {
    return chosen.command == Command::Shell ? runShell(chosen, signals, console)
                                            : runCommand(chosen, signals, console);
  };
  auto outcome = options != nullptr ? run(*options) : std::get<Outcome>(parsed);
  if (outcome.code == kDone && !console.good()) outcome = console.outputLost();
  if (!outcome.message.empty()) console.note(outcome.message);
  return outcome.code;
}

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/options.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "apps/kvfob/cli/command_line.h"
#include "apps/kvfob/cli/completion.h"
#include "apps/kvfob/cli/manual.h"

namespace kvfob {

std::variant<Options, Outcome> parseOptions(int argc, const char* const* argv) {
  Options options;
  const auto app = makeCommandLine(options);
  try {
    app->parse(argc, argv);
  } catch (const CLI::Success& success) {
    app->exit(success, std::cout, std::cerr);
    return Outcome{kDone, ""};
  } catch (const CLI::ParseError& error) {
    return Outcome{kUsage, std::string(error.what()) + " (see kvfob --help)"};
  }
  if (options.command == Command::Completion) {
    std::cout << completionScript(*app, options.shell) << std::flush;
    return Outcome{kDone, ""};
  }
  if (options.command == Command::Manual) {
    std::cout << manualPage(*app) << std::flush;
    return Outcome{kDone, ""};
  }
  return options;
}

}  // namespace kvfob

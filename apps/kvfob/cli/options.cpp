// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/cli/options.h"

#include <CLI/CLI.hpp>
#include <sstream>

#include "apps/kvfob/cli/command_line.h"
#include "apps/kvfob/cli/completion.h"
#include "apps/kvfob/cli/manual.h"

namespace kvfob {

std::variant<Options, Outcome> parseOptions(int argc, const char* const* argv,
                                            std::string& printed) {
  Options options;
  const auto app = makeCommandLine(options);
  try {
    app->parse(argc, argv);
  } catch (const CLI::Success& success) {
    std::ostringstream text;
    app->exit(success, text, text);
    printed = text.str();
    return Outcome();
  } catch (const CLI::ParseError& error) {
    return Outcome{kUsage, std::string(error.what()) + " (see kvfob --help)"};
  }
  if (options.command == Command::Completion) {
    printed = completionScript(*app, options.shell);
    return Outcome();
  }
  if (options.command == Command::Manual) {
    printed = manualPage(*app);
    return Outcome();
  }
  return options;
}

}  // namespace kvfob

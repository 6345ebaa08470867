// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/shell/shell.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "apps/kvfob/book/book.h"
#include "apps/kvfob/book/book_file.h"
#include "apps/kvfob/cli/offered_words.h"
#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/commands/run.h"
#include "apps/kvfob/radio/links.h"
#include "apps/kvfob/shell/line_editor.h"
#include "apps/kvfob/shell/words.h"

namespace kvfob {
namespace {

constexpr std::string_view kPrompt = "kvfob> ";

// What makes no sense while a radio is in use, or would be a shell in a shell.
constexpr std::array<Command, 4> kElsewhere{Command::Shell, Command::Tag, Command::Demo,
                                            Command::Completion};

class Shell {
 public:
  Shell(const Options& options, const SignalFd& signals, Console& console)
      : options_(options),
        signals_(signals),
        console_(console),
        terminal_(isatty(STDIN_FILENO) == 1),
        radio_(options),
        loop_(radio_.queue(), signals),
        links_(radio_, loop_, console, /*kept=*/true),
        editor_(loop_, historyFile(), [this](const auto& words) { return offered(words); }) {}

  Outcome run();

 private:
  static std::string historyFile();
  Outcome execute(const std::string& line);
  Outcome carryOut(const Options& options);
  std::vector<std::string> offered(const std::vector<std::string>& words) const;

  const Options& options_;
  const SignalFd& signals_;
  Console& console_;
  const bool terminal_;
  Radio radio_;
  Loop loop_;
  Links links_;
  LineEditor editor_;
  bool quit_ = false;
};

Outcome Shell::run() {
  console_.note("radio: " + radio_.description());
  if (terminal_) {
    console_.note("\"help\" tells of commands, \"quit\" or Ctrl-D ends; Tab completes");
  }
  while (!quit_ && console_.good()) {
    std::string line;
    const auto end = editor_.read(std::string(kPrompt), line);
    if (end == LineEditor::End::Input) break;
    if (end == LineEditor::End::Signal && loop_.signal() != SIGINT) {
      return {kSignal + loop_.signal(), ""};
    }
    auto outcome = end == LineEditor::End::Line ? execute(line) : Outcome();
    // Ctrl-C ends what is under way, and not the shell.
    if (terminal_ && loop_.signal() == SIGINT) loop_.forgetSignal();
    if (outcome.code == kDone) continue;
    if (!terminal_) return outcome;
    if (!outcome.message.empty()) console_.note(outcome.message);
  }
  return {};
}

Outcome Shell::execute(const std::string& line) {
  const auto [words, open] = splitWords(line);
  if (words.empty() || words.front().starts_with('#')) return {};
  if (open) return {kUsage, "a quotation mark is missing"};
  if (words.front() == "quit" || words.front() == "exit") {
    quit_ = true;
    return {};
  }
  std::vector<const char*> arguments{"kvfob"};
  for (const auto& word : words) arguments.push_back(word.c_str());
  std::string printed;
  auto parsed = parseOptions(static_cast<int>(arguments.size()), arguments.data(), printed);
  if (!printed.empty()) console_.block(printed);
  if (auto* outcome = std::get_if<Outcome>(&parsed)) return std::move(*outcome);
  auto& options = std::get<Options>(parsed);
  // One radio serves the whole shell.
  options.radio = options_.radio;
  options.adapter = options_.adapter;
  options.color = options_.color;
  options.log = options_.log;
  return carryOut(options);
}

Outcome Shell::carryOut(const Options& options) {
  if (std::find(kElsewhere.begin(), kElsewhere.end(), options.command) != kElsewhere.end()) {
    return {kUsage, "\"" + options.word + "\" is not a command of the shell"};
  }
  if (!usesRadio(options.command)) return runCommand(options, signals_, console_);
  return runOnRadio(options, radio_, links_);
}

std::string Shell::historyFile() {
  const BookFile book;
  // Without a folder that is there nothing is kept: to make one is for what must not be lost.
  return book.path().empty() ? "" : book.path().substr(0, book.path().rfind('/')) + "/history";
}

std::vector<std::string> Shell::offered(const std::vector<std::string>& words) const {
  auto result = offeredWords(words);
  const auto read = Book::read();
  if (words.size() < 2 || !std::holds_alternative<Book>(read)) return result;
  for (const auto& entry : std::get<Book>(read).entries()) {
    if (entry.radio != options_.radio) continue;
    result.push_back(entry.name.empty() ? entry.address : entry.name);
  }
  return result;
}

}  // namespace

Outcome runShell(const Options& options, const SignalFd& signals, Console& console) {
  return Shell(options, signals, console).run();
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/shell/line_editor.h"

#include <editline/readline.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <utility>

#include "apps/kvfob/shell/words.h"

namespace kvfob {
namespace {

constexpr int kHistoryMost = 500;

// The library under this has one line for the whole process, and calls plain functions.
struct Current {
  Completer completer = {};
  std::vector<std::string> offered = {};
  bool done = false;
  std::optional<std::string> line = {};  // absent: the input has ended
};
Current& current() {
  static Current state;
  return state;
}

void takeLine(char* text) {
  current().done = true;
  if (text != nullptr) current().line = text;
  std::free(text);
  rl_callback_handler_remove();
}

char* nextOffered(const char* /*text*/, int state) {
  const auto index = static_cast<std::size_t>(state);
  const auto& offered = current().offered;
  return index < offered.size() ? strdup(offered[index].c_str()) : nullptr;
}

char** complete(const char* text, int start, int /*end*/) {
  auto words = splitWords(std::string_view(rl_line_buffer, static_cast<std::size_t>(start))).words;
  words.emplace_back(text);
  current().offered.clear();
  for (auto& word : current().completer(words)) {
    if (word.starts_with(text)) current().offered.push_back(quoteWord(word));
  }
  rl_attempted_completion_over = 1;  // no names of files
  return rl_completion_matches(text, nextOffered);
}

}  // namespace

LineEditor::LineEditor(Loop& loop, std::string history, Completer completer)
    : loop_(loop), history_(std::move(history)) {
  current().completer = std::move(completer);
  rl_readline_name = const_cast<char*>("kvfob");
  rl_attempted_completion_function = complete;
  using_history();
  stifle_history(kHistoryMost);
  if (!history_.empty()) read_history(history_.c_str());
}

LineEditor::~LineEditor() { current() = {}; }

LineEditor::End LineEditor::read(const std::string& prompt, std::string& line) {
  if (isatty(STDIN_FILENO) != 1) return readPlain(line);
  current().done = false;
  current().line.reset();
  rl_callback_handler_install(prompt.c_str(), takeLine);
  loop_.setInput(STDIN_FILENO, [] { rl_callback_read_char(); });
  loop_.runUntil([this] { return current().done || loop_.signal() != 0; });
  loop_.setInput(-1, {});
  if (!current().done) {
    rl_callback_handler_remove();
    std::cout << '\n';
    return End::Signal;
  }
  if (!current().line) return End::Input;
  line = *current().line;
  if (!line.empty()) remember(line);
  return End::Line;
}

LineEditor::End LineEditor::readPlain(std::string& line) {
  return std::getline(std::cin, line) ? End::Line : End::Input;
}

void LineEditor::remember(const std::string& line) const {
  add_history(line.c_str());
  if (history_.empty()) return;
  write_history(history_.c_str());
  chmod(history_.c_str(), S_IRUSR | S_IWUSR);
}

}  // namespace kvfob

/// Where the program writes, and with what emphasis.
#ifndef APPS_KVFOB_CONSOLE_H
#define APPS_KVFOB_CONSOLE_H

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

#include "apps/kvfob/options.h"

namespace kvfob {

enum class Style { plain, bold, dim, good, bad, accent };

/// Standard output and standard error.
class Console {
 public:
  /// @param live  Whether what was written may be written over: the output is a terminal.
  Console(std::ostream& out, std::ostream& err, bool color, bool live)
      : out_(out), err_(err), color_(color), live_(live) {}

  /// The process's own streams; the environment has its say in the colours.
  static Console standard(ColorMode mode);

  bool live() const { return live_; }

  /// The text, in a colour if colours are on.
  std::string styled(Style style, std::string_view text) const;

  /// Writes one line of output at once.
  void line(std::string_view text = {});

  /// Writes lines, each with its end, at once.
  void block(std::string_view lines);

  /// Writes lines in place of those that this wrote before; only when live.
  void redraw(std::string_view lines);

  /// How many lines can be written over.
  static std::size_t height();

  /// Writes one line for the user beside the output: "kvfob: ...".
  void note(std::string_view text);

  /// Whether the output still takes what is written.
  bool good() const { return out_.good(); }

 private:
  std::ostream& out_;
  std::ostream& err_;
  bool color_;
  bool live_;
  std::size_t drawn_ = 0;  // lines of the block on the screen
};

}  // namespace kvfob

#endif  // APPS_KVFOB_CONSOLE_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What the program remembers of the user's tags between its runs.
#ifndef APPS_KVFOB_BOOK_BOOK_H
#define APPS_KVFOB_BOOK_BOOK_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/base/radio_kind.h"
#include "apps/kvfob/base/secret.h"

namespace kvfob {

/// How far the binding of a tag has come, as far as this program knows.
enum class Binding {
  Bound,
  Begun,    ///< A password was on its way to the tag; whether it took it is not known.
  Unbound,  ///< It was bound once; its name is kept.
};

/// A tag that was bound. A simulated one is never taken for a real one, so the radio is part of
/// what it is known by.
struct BookEntry {
  RadioKind radio = RadioKind::BlueZ;
  std::string address;
  std::string name;  ///< The user's; empty for none.
  Secret password;   ///< Empty unless the user asked to keep it.
  Binding binding = Binding::Bound;
};

/// A line of the file that is no tag's. It stays in the file as it is.
struct BookRemark {
  std::string text;  ///< Which line it is and what is wrong with it.
  bool foreign;      ///< A later version of this program may well understand it.
};

/// The file `kvfob/tags` in the folder for state ($XDG_STATE_HOME, else ~/.local/state). It is a
/// text with one tag a line: radio, address, name, password in hexadecimal, and "begun" or
/// "unbound" unless it is bound, with tabs between them. Only its owner can read it.
class Book {
 public:
  /// Reads the file; one that is not there is an empty book. An error when it cannot be read or
  /// others may read it.
  static std::variant<Book, Outcome> read();

  const std::vector<BookEntry>& entries() const { return entries_; }
  const std::vector<BookRemark>& remarks() const { return remarks_; }

  /// The tag that the user means by its address or by its name; null if there is none. While one
  /// that is bound is bound anew, this is what it was before.
  const BookEntry* find(RadioKind radio, std::string_view tag) const;

  /// The user's name for an address; empty for none.
  std::string nameOf(RadioKind radio, std::string_view address) const;

  /// Reads the file, changes it and writes it, with no other process in between. It is replaced as
  /// a whole or not at all, and left as it is when `change` fails. What is no tag's stays in it.
  static Outcome update(const std::function<Outcome(std::vector<BookEntry>& entries)>& change);

 private:
  std::vector<BookEntry> entries_;
  std::vector<BookRemark> remarks_;
};

/// The one of these that the user means; see Book::find.
const BookEntry* findEntry(const std::vector<BookEntry>& entries, RadioKind radio,
                           std::string_view tag);

/// Why a text cannot be a tag's name; nothing when it can. 1 to 32 bytes of plain text, no leading
/// "-", and no address.
std::optional<std::string> wrongName(std::string_view name);

}  // namespace kvfob

#endif  // APPS_KVFOB_BOOK_BOOK_H

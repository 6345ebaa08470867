// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The text of the file that the book is kept in.
#ifndef APPS_KVFOB_BOOK_BOOK_TEXT_H
#define APPS_KVFOB_BOOK_BOOK_TEXT_H

#include <string>
#include <vector>

#include "apps/kvfob/base/secret.h"
#include "apps/kvfob/book/book.h"

namespace kvfob {

struct BookText {
  std::vector<BookEntry> entries;
  std::vector<Secret> kept;  ///< Comments, and lines that are no tag's.
  std::vector<BookRemark> remarks;
};

/// @param path  The file that it is from, for the remarks.
BookText parseBook(const Secret& text, const std::string& path);

Secret formatBook(const BookText& book);

}  // namespace kvfob

#endif  // APPS_KVFOB_BOOK_BOOK_TEXT_H

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The file that the tags are remembered in.
#ifndef APPS_KVFOB_BOOK_BOOK_FILE_H
#define APPS_KVFOB_BOOK_BOOK_FILE_H

#include <string>
#include <variant>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/base/secret.h"

namespace kvfob {

/// A descriptor that is closed when it is dropped.
class OpenFile {
 public:
  explicit OpenFile(int fd) : fd_(fd) {}
  OpenFile(OpenFile&& other) noexcept;
  OpenFile& operator=(OpenFile&&) = delete;
  ~OpenFile();

  int fd() const { return fd_; }

 private:
  int fd_;
};

class BookFile {
 public:
  BookFile();

  /// Empty when the environment does not tell where the user's files are.
  const std::string& path() const { return path_; }

  /// What is in it; empty when there is none. An error when others may read it.
  std::variant<Secret, Outcome> read() const;

  /// Keeps other processes from changing it until the lock is dropped. Makes its folder.
  std::variant<OpenFile, Outcome> lock() const;

  /// Puts a new file in its place; on an error the old one stays.
  Outcome replace(const Secret& text) const;

 private:
  Outcome failure(const std::string& what) const;

  std::string folder_;
  std::string path_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_BOOK_BOOK_FILE_H

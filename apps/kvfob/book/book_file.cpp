// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/book/book_file.h"

#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace kvfob {
namespace {

// More than this is not ours.
constexpr std::size_t kSizeMost = 1 << 20;

// The folder that the environment names, or nothing.
std::string stateFolder() {
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && *state == '/') return state;
  const char* home = std::getenv("HOME");
  if (home != nullptr && *home == '/') return std::string(home).append("/.local/state");
  return {};
}

bool writeAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const auto count = write(fd, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return fsync(fd) == 0;
}

}  // namespace

OpenFile::OpenFile(OpenFile&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

OpenFile::~OpenFile() {
  if (fd_ >= 0) close(fd_);
}

BookFile::BookFile() {
  const auto state = stateFolder();
  if (state.empty()) return;
  folder_ = state + "/kvfob";
  path_ = folder_ + "/tags";
}

std::variant<Secret, Outcome> BookFile::read() const {
  if (path_.empty()) return Secret();
  const OpenFile file(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.fd() < 0 && (errno == ENOENT || errno == ENOTDIR)) return Secret();
  struct stat status {};
  if (file.fd() < 0 || fstat(file.fd(), &status) != 0) return failure("cannot read");
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    return Outcome{kStateFile, "others may read " + path_ + "; make it yours: chmod 600 " + path_};
  }
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  if (text.size() > kSizeMost) return Outcome{kStateFile, path_ + " is too long to be kvfob's"};
  std::size_t got = 0;
  while (got < text.size()) {
    const auto count = ::read(file.fd(), text.data() + got, text.size() - got);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return failure("cannot read");
    if (count == 0) break;
    got += static_cast<std::size_t>(count);
  }
  text.resize(got);
  return Secret(std::move(text));
}

std::variant<OpenFile, Outcome> BookFile::lock() const {
  if (path_.empty()) return Outcome{kStateFile, "tags cannot be remembered: HOME is not set"};
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(folder_).parent_path(), error);
  if (mkdir(folder_.c_str(), S_IRWXU) != 0 && errno != EEXIST) return failure("cannot make");
  OpenFile file(open((path_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (file.fd() < 0 || flock(file.fd(), LOCK_EX) != 0) return failure("cannot lock");
  return file;
}

Outcome BookFile::replace(const Secret& text) const {
  auto fresh = path_ + ".XXXXXX";
  const OpenFile file(mkostemp(fresh.data(), O_CLOEXEC));  // readable by its owner only
  if (file.fd() < 0) return failure("cannot write");
  if (!writeAll(file.fd(), text.text()) || rename(fresh.c_str(), path_.c_str()) != 0) {
    auto outcome = failure("cannot write");
    unlink(fresh.c_str());
    return outcome;
  }
  const OpenFile folder(open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder.fd() >= 0) fsync(folder.fd());
  return {};
}

Outcome BookFile::failure(const std::string& what) const {
  return {kStateFile, what + " " + path_ + ": " + strerror(errno)};
}

}  // namespace kvfob

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// keeper ADAPTER PASSWORD_FILE TAG...: stays connected to all of the tags, and says what becomes of
// each. "ring TAG" on its input rings one; it ends with its input.
#include <KVFobLink/KVFobLink.h>
#include <KVFobLink/KVLinuxPlatform.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <iostream>
#include <memory>
#include <set>
#include <string>

namespace {

class Keeper {
 public:
  Keeper(std::shared_ptr<KVLinuxEventQueue> queue, const std::string& password)
      : queue_(std::move(queue)),
        input_(queue_->watch(STDIN_FILENO, POLLIN, [this](short) { readInput(); })) {
    manager_->setPassword(password);
  }

  void keep(const std::string& tag) {
    missing_.insert(tag);
    manager_->addTracker(tag)->didConnectionChange(
        [this, tag](std::uint64_t connection) { changed(tag, connection); });
  }

  void run() {
    manager_->startScan([](const KVTrackers&) {});
    queue_->run();
    // A bound tag would be connected again.
    manager_->removeAllTrackers();
  }

 private:
  static void say(const std::string& tag, const std::string& what) {
    std::cout << tag << ' ' << what << std::endl;
  }

  void changed(const std::string& tag, std::uint64_t connection) {
    if (connection == KVConnectionConnected) {
      missing_.erase(tag);
      if (missing_.empty()) manager_->stopScan();
      if (connected_.insert(tag).second) say(tag, "connected");
    } else if (connection == KVConnectionVerifyFailed) {
      say(tag, "refused the password");
    } else if (connected_.erase(tag) != 0) {
      say(tag, "connection lost");
    }
  }

  void readInput() {
    std::array<char, 256> bytes{};
    const auto count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0) return queue_->stop();
    typed_.append(bytes.data(), static_cast<std::size_t>(count));
    for (auto end = typed_.find('\n'); end != std::string::npos; end = typed_.find('\n')) {
      obey(typed_.substr(0, end));
      typed_.erase(0, end + 1);
    }
  }

  void obey(const std::string& line) {
    constexpr std::string_view kRing = "ring ";
    if (!line.starts_with(kRing)) return say(line, "is no command");
    const auto tag = line.substr(kRing.size());
    manager_->addTracker(tag)->switchBellStatus(
        /*status=*/true, [tag](bool ringing, const std::optional<KVError>&) {
          say(tag, ringing ? "rings" : "does not ring");
        });
  }

  std::shared_ptr<KVLinuxEventQueue> queue_;
  std::unique_ptr<KVLinuxEventQueue::Watch> input_;
  std::shared_ptr<KVTrackerManager> manager_ = std::make_shared<KVTrackerManager>();
  std::set<std::string> missing_;  // never connected yet
  std::set<std::string> connected_;
  std::string typed_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  KVLinuxOptions options;
  options.bluez.adapter = argv[1];
  const auto platform = KVLinuxPlatform::make(options);
  KVPlatform::setCurrent(platform);
  std::string password;
  std::ifstream file(argv[2]);
  std::getline(file, password);
  Keeper keeper(std::dynamic_pointer_cast<KVLinuxEventQueue>(platform->eventQueue), password);
  for (int each = 3; each < argc; ++each) keeper.keep(argv[each]);
  keeper.run();
  return 0;
}

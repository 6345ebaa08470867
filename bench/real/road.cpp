// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// road ADAPTER TAG PASSWORD_FILE: scans for the tag, binds and rings it, and says "rung". When its
// input ends it unbinds it.
#include <KVFobLink/KVFobLink.h>
#include <KVFobLink/KVLinuxPlatform.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

namespace {

using namespace std::chrono_literals;

class Road {
 public:
  Road(std::string tag, const std::string& password) : tag_(std::move(tag)) {
    manager_->setPassword(password);
    manager_->startScan([this](const KVTrackers& trackers) { scanned(trackers); });
  }

  int run() {
    queue_->postAfter(45s, [this] { end("took too long"); });
    queue_->run();
    if (!problem_.empty()) std::cerr << problem_ << std::endl;
    return problem_.empty() ? 0 : 1;
  }

 private:
  void scanned(const KVTrackers& trackers) {
    const auto found = std::find_if(trackers.begin(), trackers.end(),
                                    [this](const auto& each) { return each->mac() == tag_; });
    if (found == trackers.end() || tracker_) return;
    tracker_ = *found;
    manager_->stopScan();
    manager_->bindingVerify(tracker_, [this](bool bound, const std::optional<KVError>&) {
      if (!bound) return end("not bound");
      tracker_->switchBellStatus(
          /*status=*/true, [this](bool ringing, const std::optional<KVError>&) {
            if (!ringing) return end("not rung");
            rung();
          });
    });
  }

  void rung() {
    std::cout << "rung" << std::endl;
    std::cin.get();
    manager_->unbindTracker(tag_, [this](bool unbound, const std::optional<KVError>&) {
      end(unbound ? "" : "not unbound");
    });
  }

  void end(const std::string& problem) {
    problem_ = problem;
    queue_->stop();
  }

  std::string tag_;
  std::string problem_;
  std::shared_ptr<KVEventQueue> queue_ = KVPlatform::current().eventQueue;
  std::shared_ptr<KVTrackerManager> manager_ = KVTrackerManager::sharedInstance();
  std::shared_ptr<KVTracker> tracker_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  KVLinuxOptions options;
  options.bluez.adapter = argv[1];
  options.log = [](std::string_view) {};
  KVPlatform::setCurrent(KVLinuxPlatform::make(options));
  std::string password;
  std::ifstream file(argv[3]);
  std::getline(file, password);
  return Road(argv[2], password).run();
}

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "simulator/clock/worker.h"

namespace kvsim {

Worker::~Worker() {
  if (!thread_.joinable()) return;
  state_.store(kLeaving);
  state_.notify_all();
  thread_.join();
}

void Worker::run(Job& job) {
  if (!thread_.joinable()) thread_ = std::thread([this] { loop(); });
  job_ = &job;
  state_.store(kWorking);
  state_.notify_all();
  state_.wait(kWorking);
}

void Worker::loop() {
  for (;;) {
    state_.wait(kIdle);
    if (state_.load() == kLeaving) return;
    job_->work();
    state_.store(kIdle);
    state_.notify_all();
  }
}

}  // namespace kvsim

// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef SIMULATOR_CLOCK_WORKER_H
#define SIMULATOR_CLOCK_WORKER_H

#include <atomic>
#include <thread>

namespace kvsim {

/// A second thread that runs one job at a time while the caller waits for it.
class Worker {
 public:
  class Job {
   public:
    virtual ~Job() = default;
    virtual void work() = 0;
  };

  Worker() = default;
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// Runs `job` on the worker's thread and returns when it has ended. One caller at a time.
  void run(Job& job);

 private:
  enum State { kIdle, kWorking, kLeaving };
  void loop();

  std::atomic<State> state_{kIdle};
  Job* job_ = nullptr;
  std::thread thread_;
};

}  // namespace kvsim

#endif  // SIMULATOR_CLOCK_WORKER_H

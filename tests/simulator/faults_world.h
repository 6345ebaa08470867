// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// One tag, one application and one fault, in virtual time.
#ifndef TESTS_SIMULATOR_FAULTS_WORLD_H
#define TESTS_SIMULATOR_FAULTS_WORLD_H

#include <atomic>
#include <string>
#include <vector>

#include "KVFobLink/KVFobLink.h"
#include "KVFobSimulator/KVFobSimulator.h"

namespace kvsim {

enum class Fault { Drop, Silence, Refusal, Garbage, Duplicate, Reorder, AdapterOff, CipherFailure };
inline constexpr const char* kFaultNames[] = {"drop",        "silence",       "refusal",
                                              "garbage",     "duplicate",     "reorder",
                                              "adapter off", "cipher failure"};

/// What the application is at when the fault comes.
enum class Operation { Scan, Bind, ComeBack, Ring, SetDistance, ReadSignal, Unbind };

struct Place {
  /// Whether the tag's answer to a command is at stake here.
  bool isAnswer() const;
  /// Which of the library's calls of the cipher serves this step, from the beginning of the
  /// operation; 0 is none.
  int cipherCall() const;

  std::string name;
  Operation operation;
  Procedure step;
};

struct Trouble {
  Place place;
  Fault fault;
};

/// Every fault at every place where there can be such a fault.
std::vector<Trouble> allTroubles();

/// Fails one call, counted from when it was told to.
class FailingCipher final : public KVCipher {
 public:
  explicit FailingCipher(std::shared_ptr<KVCipher> real) : real_(std::move(real)) {}
  void failCall(int number) { countdown_ = number; }
  bool aes128Block(std::span<const std::uint8_t, 16> key, std::span<const std::uint8_t, 16> in,
                   std::span<std::uint8_t, 16> out, bool encrypt) const override;
  void md5(KVBytes data, std::span<std::uint8_t, 16> digest) const override {
    real_->md5(data, digest);
  }

 private:
  std::shared_ptr<KVCipher> real_;
  mutable std::atomic<int> countdown_ = 0;
};

class FaultsWorld {
 public:
  FaultsWorld();
  ~FaultsWorld();
  FaultsWorld(const FaultsWorld&) = delete;
  FaultsWorld& operator=(const FaultsWorld&) = delete;

  /// Carries the operation out, with the trouble in its way, for long enough that every time-out is
  /// over. Returns what the application saw, each with the second in which it did.
  std::string run(const Trouble& trouble);

  /// Lets the fault pass and uses the tag. Returns what that took.
  std::string recover();

 private:
  void scan();
  void find();
  void bind();
  void start(Operation operation);
  void armScan(Fault fault);
  void switchAdapter();
  void arm(const Trouble& trouble);
  void strike(const Trouble& trouble);
  bool works();
  void saw(const std::string& what);
  std::string account() const;
  KVResultCallback result(const char* what);

  struct Moment {
    std::string when;
    std::string what;
  };

  std::shared_ptr<FailingCipher> cipher_;
  SimulatedRadio radio_;
  std::shared_ptr<VirtualTag> tag_;
  std::shared_ptr<KVTrackerManager> manager_;
  std::shared_ptr<KVTracker> tracker_;
  KVData lastSent_;
  bool recording_ = false;
  std::chrono::nanoseconds since_{0};
  std::vector<Moment> seen_;
};

}  // namespace kvsim

#endif  // TESTS_SIMULATOR_FAULTS_WORLD_H

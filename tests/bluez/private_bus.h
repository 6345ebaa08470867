/// A message bus of a test's own.
#ifndef TESTS_BLUEZ_PRIVATE_BUS_H
#define TESTS_BLUEZ_PRIVATE_BUS_H

#include <sys/types.h>

#include <string>

namespace kvtest {

/// Runs a dbus-daemon in a new directory for as long as it lives.
class PrivateBus {
 public:
  PrivateBus();
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  /// Empty if the daemon did not start.
  const std::string& address() const { return address_; }

  /// Ends the daemon, as when the system's bus is restarted; `start` brings it back at the same
  /// address.
  void stop();
  void start();

 private:
  std::string directory_;
  std::string address_;
  pid_t daemon_ = -1;
};

}  // namespace kvtest

#endif  // TESTS_BLUEZ_PRIVATE_BUS_H

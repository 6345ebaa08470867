// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The signal strength of a live link. D-Bus does not offer it, the kernel does.
#ifndef PLATFORM_LINUX_BLUEZ_LIVE_RSSI_H
#define PLATFORM_LINUX_BLUEZ_LIVE_RSSI_H

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/bluez/context.h"
#include "platform/linux/bluez/hci_sockets.h"

namespace kv {

/// Reads through a raw HCI socket, which needs no privilege: Read RSSI is among the few commands
/// that the kernel lets anybody send. Where that socket cannot be had (a container without the
/// host's network, a service that may not use AF_BLUETOOTH), the management interface is the second
/// choice; it needs CAP_NET_ADMIN.
class LiveRssi {
 public:
  /// Absent when this reading failed.
  using Answer = std::function<void(std::optional<std::int64_t> rssi)>;

  explicit LiveRssi(Context& context,
                    std::shared_ptr<HciSockets> sockets = std::make_shared<HciSockets>());
  ~LiveRssi();

  /// Asks for the link to `address` on the adapter at `adapterPath`. Where there is no way to read
  /// it, the log says so once and `answered` is never called.
  void read(const std::string& adapterPath, const std::string& address, bool randomAddress,
            Answer answered);

  /// Drops what is pending; the adapter has changed.
  void reset();

 private:
  enum class Channel { None, Raw, Management };
  struct Query {
    std::string address;
    bool randomAddress = false;
    Answer answered;
    std::uint16_t handle = 0;
  };

  bool open(std::uint16_t index);
  void next();
  bool sendRaw(Query& query);
  bool sendManagement(const Query& query);
  void receive();
  std::optional<std::int64_t> parse(KVBytes packet, bool& ours) const;
  void answer(std::optional<std::int64_t> rssi);
  void giveUp(const std::string& why);

  Context& context_;
  const std::shared_ptr<HciSockets> sockets_;
  Channel channel_ = Channel::None;
  std::uint16_t index_ = 0;
  OwnedFd socket_;
  std::unique_ptr<KVLinuxEventQueue::Watch> watch_;
  std::deque<Query> queries_;
  bool busy_ = false;
  bool unavailable_ = false;
  Timer limit_;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_LIVE_RSSI_H

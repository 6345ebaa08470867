// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The Linux platform: BlueZ over D-Bus, epoll, Mbed TLS, ICU.
#ifndef KVFOBLINK_KVLINUXPLATFORM_H
#define KVFOBLINK_KVLINUXPLATFORM_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "KVFobLink/KVEventQueue.h"
#include "KVFobLink/KVExport.h"
#include "KVFobLink/KVPlatform.h"

/// An event queue that also watches file descriptors.
class KVFOB_EXPORT KVLinuxEventQueue : public KVEventQueue {
 public:
  /// Ends the watching when it is dropped; from then on the callback is not called. It may be
  /// dropped inside its own callback, and after the queue.
  class KVFOB_EXPORT Watch {
   public:
    virtual ~Watch() = default;

    /// Replaces the events that are watched for.
    virtual void setEvents(short events) = 0;
  };

  /// Calls `ready` on the event thread with what poll(2) would report (POLLIN, POLLOUT, POLLERR,
  /// POLLHUP), for as long as that holds and the watch lives. `fd` stays the caller's and must
  /// outlive the watch. Event thread.
  [[nodiscard]] virtual std::unique_ptr<Watch> watch(int fd, short events,
                                                     std::function<void(short)> ready) = 0;
};

/// Options of the BlueZ central.
struct KVBlueZOptions {
  /// Which adapter: "hci0", or its address "00:11:22:33:44:55"; empty takes the first that is
  /// powered, else the first.
  std::string adapter;
  /// The address of the bus on which org.bluez is found; empty means the system bus
  /// (DBUS_SYSTEM_BUS_ADDRESS is honoured).
  std::string busAddress;
  /// How long one attempt to connect may take before it is abandoned and the next is spaced.
  std::chrono::milliseconds connectTimeout{20'000};
  /// How long discovery of services may take once the link is up.
  std::chrono::milliseconds servicesTimeout{10'000};
  /// How long one read or write may take before the link counts as dead and is dropped.
  std::chrono::milliseconds requestTimeout{5'000};
  /// How long a link may take to end after it was asked to.
  std::chrono::milliseconds disconnectTimeout{10'000};
  /// A scan that hears nothing from any device for this long is restarted.
  std::chrono::milliseconds scanWatchdog{90'000};
  /// The pause after a failed attempt to connect, with jitter: it doubles from the first value up
  /// to the second.
  std::chrono::milliseconds retryFirst{250};
  std::chrono::milliseconds retryMost{5'000};
};

/// Options of the Linux platform.
struct KVLinuxOptions {
  KVBlueZOptions bluez;
  /// Takes the diagnostic lines, on any thread, one at a time. Absent: they go to standard error.
  std::function<void(std::string_view line)> log;
};

/// How options reach the library: field by field, so that the structs above may grow without
/// breaking a program that was built with smaller ones. Applications use those.
class KVFOB_EXPORT KVLinuxSettings {
 public:
  /// Numbers are never used anew.
  enum class Text : std::int32_t { Adapter = 0, BusAddress = 1 };
  enum class Time : std::int32_t {
    Connect = 0,
    Services = 1,
    Request = 2,
    Disconnect = 3,
    ScanWatchdog = 4,
    RetryFirst = 5,
    RetryMost = 6,
  };

  KVLinuxSettings();
  explicit KVLinuxSettings(const KVBlueZOptions& bluez) : KVLinuxSettings() {
    set(Text::Adapter, bluez.adapter);
    set(Text::BusAddress, bluez.busAddress);
    set(Time::Connect, bluez.connectTimeout);
    set(Time::Services, bluez.servicesTimeout);
    set(Time::Request, bluez.requestTimeout);
    set(Time::Disconnect, bluez.disconnectTimeout);
    set(Time::ScanWatchdog, bluez.scanWatchdog);
    set(Time::RetryFirst, bluez.retryFirst);
    set(Time::RetryMost, bluez.retryMost);
  }
  explicit KVLinuxSettings(const KVLinuxOptions& options) : KVLinuxSettings(options.bluez) {
    setLog(options.log);
  }
  ~KVLinuxSettings();
  KVLinuxSettings(const KVLinuxSettings&) = delete;
  KVLinuxSettings& operator=(const KVLinuxSettings&) = delete;

  void set(Text field, std::string_view value);
  void set(Time field, std::chrono::milliseconds value);
  void setLog(std::function<void(std::string_view line)> log);

  /// The options as the library that runs knows them.
  class KVFOB_LOCAL Data;
  const Data& data() const { return *data_; }

 private:
  std::unique_ptr<Data> data_;
};

/// Makes the Linux platform and its parts.
class KVFOB_EXPORT KVLinuxPlatform {
 public:
  /// A whole platform. Nothing of the radio is touched before a central is made. Any thread.
  static std::shared_ptr<KVPlatform> make(const KVLinuxOptions& options = {}) {
    return makeWith(KVLinuxSettings(options));
  }
  static std::shared_ptr<KVPlatform> makeWith(const KVLinuxSettings& settings);

  /// An event queue on epoll, with real time.
  static std::shared_ptr<KVLinuxEventQueue> makeEventQueue();

  KVLinuxPlatform() = delete;
};

#endif  // KVFOBLINK_KVLINUXPLATFORM_H

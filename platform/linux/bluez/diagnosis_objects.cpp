// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// What the daemon's objects and the kernel tell.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "platform/linux/bluez/diagnosis.h"
#include "protocol/advertisement.h"
#include "protocol/gatt_layout.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

// What a key-finder tag offers: the one in its advertisements, the other once it is connected.
bool isTag(const DeviceObject& device) {
  const auto known = [](const KVUUID& uuid) {
    return uuid == advertisedServiceUuid() || uuid == commandServiceUuid();
  };
  return std::any_of(device.uuids.begin(), device.uuids.end(), known) ||
         std::any_of(device.serviceData.begin(), device.serviceData.end(),
                     [&](const auto& entry) { return known(entry.uuid); });
}

// The daemon tells its version in the identity that an adapter shows to others, unless its
// configuration sets another one: vendor 1D6B, product 0246, then a byte each of the version.
std::string version(const std::string& modalias) {
  constexpr std::string_view kMark = "v1D6Bp0246d";
  const auto at = modalias.find(kMark);
  unsigned number = 0;
  const auto digits = at == std::string::npos ? "" : modalias.substr(at + kMark.size());
  if (std::from_chars(digits.data(), digits.data() + digits.size(), number, 16).ec != std::errc()) {
    return "of unknown version";
  }
  return std::to_string(number >> 8) + '.' + std::to_string(number & 0xff);
}

std::string nameOf(const AdapterObject& adapter) {
  return adapter.path.substr(adapter.path.rfind('/') + 1);
}

std::string describe(const AdapterObject& adapter) {
  return nameOf(adapter) + " (" + adapter.address +
         (adapter.name.empty() ? "" : ", \"" + adapter.name + '"') + ')';
}

// The adapters that the kernel has.
std::string kernelAdapters(const std::string& sys) {
  std::string names;
  std::error_code none;
  for (const auto& entry : fs::directory_iterator(sys + "/class/bluetooth", none)) {
    const std::string name = entry.path().filename();
    // A link to a tag is listed there too, as "hci0:64".
    if (name.starts_with("hci") && name.find(':') == std::string::npos) {
      names += names.empty() ? "" : ", ";
      names += name;
    }
  }
  return names;
}

// Whether a switch of the given kind, "soft" or "hard", keeps the adapter off.
bool isBlocked(const std::string& sys, const std::string& adapter, const char* kind) {
  std::error_code none;
  for (const auto& entry :
       fs::directory_iterator(fs::path(sys) / "class/bluetooth" / adapter, none)) {
    if (entry.path().filename().string().starts_with("rfkill")) {
      std::ifstream file(entry.path() / kind);
      if (file.get() == '1') return true;
    }
  }
  return false;
}

}  // namespace

void Diagnosis::examineObjects() {
  const auto& adapters = tree_.adapters();
  ok("service", "bluetoothd " +
                    (adapters.empty() ? "" : version(adapters.begin()->second.modalias) + " ") +
                    "is running");
  ok("permission", "this user may talk to bluetoothd");
  const AdapterObject* adapter = examineAdapters();
  if (adapter == nullptr) return;
  examinePower(*adapter);
  if (adapter->powered) {
    examineRssi(*adapter);
    examineScan(*adapter);
    examineLinks(*adapter);
  }
}

const AdapterObject* Diagnosis::examineAdapters() {
  const AdapterObject* chosen = nullptr;
  for (const auto& [path, adapter] : tree_.adapters()) {
    const bool fits = options_.adapter.empty() || adapter.isNamed(options_.adapter);
    if (fits && (chosen == nullptr || (adapter.powered && !chosen->powered))) chosen = &adapter;
  }
  std::string others;
  for (const auto& [path, adapter] : tree_.adapters()) {
    if (&adapter != chosen) others += (others.empty() ? "" : ", ") + describe(adapter);
  }
  if (chosen != nullptr) {
    ok("adapter", describe(*chosen) + (others.empty() ? "" : "; there is also " + others));
  } else if (others.empty()) {
    adapterMissing();
  } else {
    unusable("adapter", "there is no adapter " + options_.adapter + "; there is " + others,
             "choose one of these, by name or address");
  }
  return chosen;
}

void Diagnosis::adapterMissing() {
  const std::string names = kernelAdapters(sources_.sys);
  if (names.empty()) {
    unusable("adapter", "neither bluetoothd nor the kernel has an adapter",
             "plug one in; for one that is built in, look for missing firmware with \"dmesg | grep "
             "-i bluetooth\"; in a virtual machine, hand the adapter through");
  } else {
    unusable("adapter", "bluetoothd has no adapter, although the kernel has " + names,
             "restart bluetoothd with \"systemctl restart bluetooth\"; in a container, run it on "
             "the host");
  }
}

void Diagnosis::examinePower(const AdapterObject& adapter) {
  const std::string name = nameOf(adapter);
  if (adapter.powered) {
    ok("power", name + " is on");
  } else if (isBlocked(sources_.sys, name, "hard")) {
    unusable("power", name + " is off, by a switch of the machine",
             "use that switch, or the key for flight mode");
  } else if (isBlocked(sources_.sys, name, "soft")) {
    unusable("power", name + " is off and blocked (rfkill)",
             "\"rfkill unblock bluetooth\", then \"bluetoothctl power on\"");
  } else {
    unusable("power", name + " is off", "switch it on with \"bluetoothctl power on\"");
  }
}

void Diagnosis::examineRssi(const AdapterObject& adapter) {
  const OwnedFd raw = sources_.sockets->openRaw(adapterIndex(adapter.path));
  const std::string why = std::strerror(errno);
  if (raw) {
    ok("rssi", "the signal strength of a link can be read (raw HCI socket)");
  } else if (sources_.sockets->openManagement()) {
    hint("rssi",
         "the signal strength of a link can be read through the management interface only (the raw "
         "HCI socket: " +
             why + ')',
         "that needs the capability CAP_NET_ADMIN");
  } else {
    hint("rssi",
         "the signal strength of a link cannot be read, because a Bluetooth socket cannot be "
         "opened: " +
             why,
         "in a container, use the host's network; in a systemd service, let "
         "RestrictAddressFamilies include AF_BLUETOOTH; all else works without it");
  }
}

void Diagnosis::examineScan(const AdapterObject& adapter) {
  if (adapter.discovering) {
    hint("scan", "another program is scanning on " + nameOf(adapter),
         "nothing, unless connecting fails often; then close that program");
  } else {
    ok("scan", "nobody else is scanning");
  }
}

void Diagnosis::examineLinks(const AdapterObject& adapter) {
  bool any = false;
  for (const DeviceObject* device : tree_.connectedDevices(adapter.path)) {
    if (isTag(*device)) {
      any = true;
      hint("link",
           device->address +
               " is connected, but not by this program; a tag that is connected is not heard",
           "if no other program uses it, one that crashed has left it: \"bluetoothctl disconnect " +
               device->address + "\", or connect to it");
    }
  }
  if (!any) ok("link", "no tag is held by another program");
}

}  // namespace kv

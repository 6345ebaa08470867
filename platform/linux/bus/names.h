// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The names that are used on the bus: services, paths, interfaces, methods, signals, errors.
#ifndef PLATFORM_LINUX_BUS_NAMES_H
#define PLATFORM_LINUX_BUS_NAMES_H

/// Of D-Bus itself (D-Bus Specification, "Message Bus Messages" and "Standard Interfaces").
namespace kv::dbus {

inline constexpr const char* kService = "org.freedesktop.DBus";
inline constexpr const char* kPath = "/org/freedesktop/DBus";

inline constexpr const char* kBus = "org.freedesktop.DBus";
inline constexpr const char* kGetNameOwner = "GetNameOwner";
inline constexpr const char* kRequestName = "RequestName";
inline constexpr const char* kNameOwnerChanged = "NameOwnerChanged";

inline constexpr const char* kObjectManager = "org.freedesktop.DBus.ObjectManager";
inline constexpr const char* kGetManagedObjects = "GetManagedObjects";
inline constexpr const char* kInterfacesAdded = "InterfacesAdded";
inline constexpr const char* kInterfacesRemoved = "InterfacesRemoved";

inline constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
inline constexpr const char* kPropertiesChanged = "PropertiesChanged";
inline constexpr const char* kSet = "Set";

inline constexpr const char* kDisconnected = "org.freedesktop.DBus.Error.Disconnected";
inline constexpr const char* kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";
inline constexpr const char* kNoReply = "org.freedesktop.DBus.Error.NoReply";
inline constexpr const char* kTimeout = "org.freedesktop.DBus.Error.Timeout";
inline constexpr const char* kServiceUnknown = "org.freedesktop.DBus.Error.ServiceUnknown";
inline constexpr const char* kNameHasNoOwner = "org.freedesktop.DBus.Error.NameHasNoOwner";
/// What all errors of starting a service begin with.
inline constexpr const char* kSpawn = "org.freedesktop.DBus.Error.Spawn";
inline constexpr const char* kUnknownObject = "org.freedesktop.DBus.Error.UnknownObject";
inline constexpr const char* kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
inline constexpr const char* kUnknownInterface = "org.freedesktop.DBus.Error.UnknownInterface";

}  // namespace kv::dbus

/// Of bluetoothd (doc/*-api.txt of BlueZ).
namespace kv::bluez {

inline constexpr const char* kService = "org.bluez";
/// The ObjectManager, and what the paths of all objects of Bluetooth begin with.
inline constexpr const char* kManagerPath = "/";
inline constexpr const char* kRootPath = "/org/bluez";

inline constexpr const char* kAdapter = "org.bluez.Adapter1";
inline constexpr const char* kSetDiscoveryFilter = "SetDiscoveryFilter";
inline constexpr const char* kStartDiscovery = "StartDiscovery";
inline constexpr const char* kStopDiscovery = "StopDiscovery";
inline constexpr const char* kRemoveDevice = "RemoveDevice";

inline constexpr const char* kDevice = "org.bluez.Device1";
inline constexpr const char* kConnect = "Connect";
inline constexpr const char* kDisconnect = "Disconnect";
/// A signal (BlueZ 5.83 and later).
inline constexpr const char* kDisconnected = "Disconnected";
/// A property (BlueZ 5.80 and later, where it was started with --experimental) of devices that are
/// known by low energy and by classic Bluetooth.
inline constexpr const char* kPreferredBearer = "PreferredBearer";
inline constexpr const char* kLowEnergy = "le";

inline constexpr const char* kGattService = "org.bluez.GattService1";
inline constexpr const char* kGattCharacteristic = "org.bluez.GattCharacteristic1";
inline constexpr const char* kStartNotify = "StartNotify";
inline constexpr const char* kStopNotify = "StopNotify";
inline constexpr const char* kReadValue = "ReadValue";
inline constexpr const char* kWriteValue = "WriteValue";

inline constexpr const char* kFailed = "org.bluez.Error.Failed";
inline constexpr const char* kInProgress = "org.bluez.Error.InProgress";
inline constexpr const char* kAlreadyConnected = "org.bluez.Error.AlreadyConnected";
inline constexpr const char* kNotConnected = "org.bluez.Error.NotConnected";
inline constexpr const char* kDoesNotExist = "org.bluez.Error.DoesNotExist";
/// What all errors of classic Bluetooth begin with (BlueZ 5.86 and later).
inline constexpr const char* kErrorOfClassic = "org.bluez.Error.BREDR";

}  // namespace kv::bluez

#endif  // PLATFORM_LINUX_BUS_NAMES_H

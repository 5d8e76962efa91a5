// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The names of BlueZ's D-Bus interfaces.

namespace Zephly::bluez {

inline constexpr const char* bluezService = "org.bluez";
inline constexpr const char* adapterInterface = "org.bluez.Adapter1";
inline constexpr const char* deviceInterface = "org.bluez.Device1";
inline constexpr const char* serviceInterface = "org.bluez.GattService1";
inline constexpr const char* characteristicInterface = "org.bluez.GattCharacteristic1";
inline constexpr const char* gattManagerInterface = "org.bluez.GattManager1";
inline constexpr const char* advertisingManagerInterface = "org.bluez.LEAdvertisingManager1";
inline constexpr const char* advertisementInterface = "org.bluez.LEAdvertisement1";
inline constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
inline constexpr const char* objectManagerInterface = "org.freedesktop.DBus.ObjectManager";
inline constexpr const char* busName = "org.freedesktop.DBus";
inline constexpr const char* busPath = "/org/freedesktop/DBus";

}  // namespace Zephly::bluez

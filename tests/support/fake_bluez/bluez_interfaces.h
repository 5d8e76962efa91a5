// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The names of BlueZ's D-Bus interfaces for the fake. They are not shared with the host, so that a
/// mistake in the host is detected.

namespace fake_bluez {

inline constexpr const char* adapterInterface = "org.bluez.Adapter1";
inline constexpr const char* deviceInterface = "org.bluez.Device1";
inline constexpr const char* serviceInterface = "org.bluez.GattService1";
inline constexpr const char* characteristicInterface = "org.bluez.GattCharacteristic1";

}  // namespace fake_bluez

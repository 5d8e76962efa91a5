#pragma once
/// @file
/// The D-Bus interfaces of BlueZ, as the fake has them: not those of the host, whose mistake would
/// then be the test's.

namespace fake_bluez {

inline constexpr const char* adapterInterface = "org.bluez.Adapter1";
inline constexpr const char* deviceInterface = "org.bluez.Device1";
inline constexpr const char* serviceInterface = "org.bluez.GattService1";
inline constexpr const char* characteristicInterface = "org.bluez.GattCharacteristic1";

}  // namespace fake_bluez

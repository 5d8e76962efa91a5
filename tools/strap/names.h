#pragma once
/// @file
/// The names of BlueZ's D-Bus interfaces that a peripheral needs.

namespace Zephly::peripheral {

inline constexpr const char* gattManagerInterface = "org.bluez.GattManager1";
inline constexpr const char* advertisingManagerInterface = "org.bluez.LEAdvertisingManager1";
inline constexpr const char* advertisementInterface = "org.bluez.LEAdvertisement1";

}  // namespace Zephly::peripheral

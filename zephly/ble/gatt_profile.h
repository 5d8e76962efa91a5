#pragma once
/// @file
/// The strap's GATT profile: the name under which it advertises and the characteristics that it
/// notifies. They stand on whatever services the strap offers; no service is ever filtered for.
///
/// The identifiers are created on first use, safely from any thread.

#include <zephly/platform/cb_uuid.h>

#include <string_view>
#include <vector>

/// The only advertised name that is accepted, compared character for character.
inline constexpr std::string_view peripheralName = "Zephly";

const CBUUID& temperatureCharacteristicUUID();  ///< object and ambient temperature, 4 bytes
const CBUUID& ecgCharacteristicUUID();          ///< six ECG samples, 18 bytes
const CBUUID& batteryCharacteristicUUID();      ///< charge and charger, 3 bytes
const CBUUID& respirationCharacteristicUUID();  ///< six respiration samples, 18 bytes
const CBUUID& motionCharacteristicUUID();       ///< orientation and acceleration, 20 bytes

/// All five, in the order temperature, battery, ECG, respiration, motion: what the kit subscribes
/// to.
const std::vector<CBUUID>& characteristics();

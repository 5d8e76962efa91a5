#pragma once
/// @file
/// The strap's GATT profile: the name under which it advertises and the characteristics that it
/// notifies. They may belong to any service: services are never filtered.
///
/// The identifiers are created on first use, safely from any thread.

#include <zephly/platform/cb_uuid.h>
#include <zephly/platform/export.h>

#include <string_view>
#include <vector>

/// The only advertised name that is accepted, compared character for character.
inline constexpr std::string_view peripheralName = "Zephly";

/// Object and ambient temperature, 4 bytes.
ZEPHLY_EXPORT const CBUUID& temperatureCharacteristicUUID();
/// Six ECG samples, 18 bytes.
ZEPHLY_EXPORT const CBUUID& ecgCharacteristicUUID();
/// Charge and charger, 3 bytes.
ZEPHLY_EXPORT const CBUUID& batteryCharacteristicUUID();
/// Six respiration samples, 18 bytes.
ZEPHLY_EXPORT const CBUUID& respirationCharacteristicUUID();
/// Orientation and acceleration, 20 bytes.
ZEPHLY_EXPORT const CBUUID& motionCharacteristicUUID();

/// All five, in the order temperature, battery, ECG, respiration, motion: what the kit subscribes
/// to.
ZEPHLY_EXPORT const std::vector<CBUUID>& characteristics();

// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The strap's GATT profile: the name under which it advertises and the characteristics that it
/// notifies. They may belong to any service: services are never filtered.
///
/// The identifiers are created on first use, safely from any thread.

#include <zephly/platform/cb_uuid.h>
#include <zephly/platform/export.h>
#include <zephly/protocol/streams.h>

#include <string_view>
#include <vector>

/// The only advertised name that is accepted, compared character for character.
inline constexpr std::string_view peripheralName = "Zephly";

namespace Zephly {

/// The characteristic that carries `stream`.
ZEPHLY_EXPORT const CBUUID& characteristicUUID(Stream stream);

}  // namespace Zephly

/// The same, one by one.
ZEPHLY_EXPORT const CBUUID& temperatureCharacteristicUUID();
ZEPHLY_EXPORT const CBUUID& ecgCharacteristicUUID();
ZEPHLY_EXPORT const CBUUID& batteryCharacteristicUUID();
ZEPHLY_EXPORT const CBUUID& respirationCharacteristicUUID();
ZEPHLY_EXPORT const CBUUID& motionCharacteristicUUID();

/// All of them, in the order in which the kit subscribes to them (subscriptionOrder).
ZEPHLY_EXPORT const std::vector<CBUUID>& characteristics();

// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The Bluetooth part of the host boundary.

#include <zephly/platform/cb_central_manager.h>
#include <zephly/platform/cb_peripheral.h>
#include <zephly/platform/cb_uuid.h>

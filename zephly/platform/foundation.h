// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The part of the host boundary that is independent of Bluetooth: the root object class, byte
/// buffers and errors.

#include <zephly/platform/ns_data.h>
#include <zephly/platform/ns_error.h>
#include <zephly/platform/ns_object.h>

// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// All that an application needs: the session and its delegates, the processing wrapper, the number
/// conversions and the version. Choose a host (see hosts/), then create a Zephly::Zephly.

#include <zephly/protocol/battery_status.h>
#include <zephly/protocol/utilities.h>
#include <zephly/session/signal_processor.h>
#include <zephly/session/version.h>
#include <zephly/session/workout_delegate.h>
#include <zephly/session/zephly.h>
#include <zephly/session/zephly_delegate.h>

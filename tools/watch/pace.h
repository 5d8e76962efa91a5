// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// How fast a source runs whose time is not that of the clock on the wall, for people.
///
///   paceText(1, {});       // ""
///   paceText(0.5, {});     // "speed 0.5"
///   paceText(1000, 20min)  // "speed 1000 (this machine is slower)"

#include <zephly/protocol/strap_time.h>

#include <string>

namespace Zephly::watch {

/// `behind`: the source's own time by which it lags behind that speed.
std::string paceText(double speed, StrapTime behind);

}  // namespace Zephly::watch

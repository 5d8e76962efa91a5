// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The speed of a source that does not run in real time, as text.
///
///   paceText(1, {});       // ""
///   paceText(0.5, {});     // "speed 0.5"
///   paceText(1000, 20min)  // "speed 1000 (this machine is slower)"

#include <zephly/protocol/strap_time.h>

#include <string>

namespace Zephly::watch {

/// `behind`: the lag behind that speed, in the source's time.
std::string paceText(double speed, StrapTime behind);

}  // namespace Zephly::watch

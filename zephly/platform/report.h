// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// How the kit reports a fact: its line on the console first, then its observer's call.
///
///     report(LinkLoss{reason}, &Observer::didLoseLink);

#include <zephly/platform/console.h>
#include <zephly/platform/observer.h>

#include <ostream>

namespace Zephly {

template <class Fact>
void report(const Fact& fact, void (Observer::*call)(const Fact&)) {
  console() << fact << std::endl;
  if (Observer* const installed = observer()) (installed->*call)(fact);
}

}  // namespace Zephly

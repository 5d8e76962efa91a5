// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// `zephly monitor`: shows everything that the kit reports of one strap.

#include <tools/common/command.h>

namespace CLI {
class App;
}

namespace Zephly::monitor {

/// Declares the subcommand on `program`.
tools::Command addMonitorCommand(CLI::App& program);

}  // namespace Zephly::monitor

// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// `zephly monitor`: watches one strap and shows everything that the kit reports of it.

#include <tools/common/command.h>

namespace CLI {
class App;
}

namespace Zephly::monitor {

/// Declares the subcommand on `program`.
tools::Command addMonitorCommand(CLI::App& program);

}  // namespace Zephly::monitor

// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// `zephly strap`: makes this machine a strap, through one of its Bluetooth adapters.

#include <tools/common/command.h>

namespace CLI {
class App;
}

namespace Zephly::peripheral {

/// Declares the subcommand on `program`.
tools::Command addStrapCommand(CLI::App& program);

}  // namespace Zephly::peripheral

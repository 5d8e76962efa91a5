// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// `zephly inspect`: what is in a capture, and what is wrong with it.

#include <tools/common/command.h>

namespace CLI {
class App;
}

namespace Zephly::inspect {

/// Declares the subcommand on `program`.
tools::Command addInspectCommand(CLI::App& program);

}  // namespace Zephly::inspect

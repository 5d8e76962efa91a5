// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// `zephly inspect`: the contents of a capture, and its defects.

#include <tools/common/command.h>

namespace CLI {
class App;
}

namespace Zephly::inspect {

/// Declares the subcommand on `program`.
tools::Command addInspectCommand(CLI::App& program);

}  // namespace Zephly::inspect

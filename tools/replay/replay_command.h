// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// `zephly replay`: plays a capture and shows everything that the kit reports, like `zephly
/// monitor`.

#include <tools/common/command.h>

namespace CLI {
class App;
}

namespace Zephly::replay {

/// Declares the subcommand on `program`.
tools::Command addReplayCommand(CLI::App& program);

}  // namespace Zephly::replay

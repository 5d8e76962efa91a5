// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// `zephly vitals`: beats, heart rate and breathing of captures and of recordings of other devices.

#include <tools/common/command.h>

namespace CLI {
class App;
}

namespace Zephly::recorders {

/// Declares the subcommand on `program`.
tools::Command addVitalsCommand(CLI::App& program);

}  // namespace Zephly::recorders

// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// `zephly process`: writes a directory of results for each of many captures.

#include <tools/common/command.h>

namespace CLI {
class App;
}

namespace Zephly::processing {

/// Declares the subcommand on `program`.
tools::Command addProcessCommand(CLI::App& program);

}  // namespace Zephly::processing

// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// `zephly record`: writes a session to a file while it runs.

#include <tools/common/command.h>

namespace CLI {
class App;
}

namespace Zephly::record {

/// Declares the subcommand on `program`.
tools::Command addRecordCommand(CLI::App& program);

}  // namespace Zephly::record

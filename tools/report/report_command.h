// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// `zephly report`: a capture as one HTML file to look at.

#include <tools/common/command.h>

namespace Zephly::reporting {

/// Declares the subcommand.
tools::Command addReportCommand(CLI::App& program);

}  // namespace Zephly::reporting

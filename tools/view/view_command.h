// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// `zephly view`: shows a strap on a live page in the browser, until it is ended.

#include <tools/common/command.h>

namespace Zephly::view {

/// Adds the command with its options; `program` must outlive the result.
tools::Command addViewCommand(CLI::App& program);

}  // namespace Zephly::view

// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The signals that end a subcommand in an orderly way.

#include <hosts/main_queue/main_queue.h>

#include <functional>
#include <vector>

namespace Zephly::tools {

/// Calls `end` from the queue at SIGINT, SIGTERM and SIGHUP, as long as the result exists. A signal
/// that the process ignores stays ignored, SIGTERM excepted: `nohup` starts a program with SIGHUP
/// ignored, and a script starts its background jobs with SIGINT ignored, to keep them running.
[[nodiscard]] std::vector<main_queue::SignalWatch> watchEndSignals(
    main_queue::MainQueue& queue, const std::function<void()>& end);

}  // namespace Zephly::tools

// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A session as JSON, one object a line per event, for programs. docs/monitor-json.md describes
/// every event.

#include <tools/watch/event.h>
#include <tools/watch/summary.h>
#include <zephly/protocol/strap_time.h>

#include <cstdint>
#include <string>

namespace Zephly::monitor {

/// The line of one event, its end included.
std::string jsonText(const watch::Event& event);
/// The line in place of `lines` lines that the reader did not take, its end included.
std::string droppedJsonText(StrapTime time, std::uint64_t lines);
/// The line of the summary, its end included.
std::string jsonText(const watch::Summary& summary);

}  // namespace Zephly::monitor

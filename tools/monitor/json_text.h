#pragma once
/// @file
/// A session as JSON, one object a line per event, for programs. docs/monitor-json.md describes
/// every event.

#include <tools/monitor/event.h>
#include <tools/monitor/summary.h>

#include <string>

namespace Zephly::monitor {

/// The line of one event, its end included.
std::string jsonText(const Event& event);
/// The line of the summary, its end included.
std::string jsonText(const Summary& summary);

}  // namespace Zephly::monitor

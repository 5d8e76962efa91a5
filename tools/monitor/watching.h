// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Shows a session on any source, to a person or a program.
///
///   return watchSession("monitor", source, output);

#include <tools/monitor/options.h>
#include <tools/watch/source_options.h>

#include <string>

namespace Zephly::monitor {

/// Runs the session and shows it as the options say and the terminal allows; returns the exit code.
/// Errors are lines on standard error, prefixed with the subcommand `command`. The program must
/// ignore SIGPIPE and SIGXFSZ. Throws as DiagnosticsFile and watch::makeSource() do.
int watchSession(const std::string& command, const watch::SourceOptions& source,
                 const OutputOptions& output);

}  // namespace Zephly::monitor

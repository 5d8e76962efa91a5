// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// `zephly export`: writes a capture as EDF+ and as CSV. `zephly record` shares its options.

#include <tools/common/command.h>
#include <tools/export/exporter.h>

#include <string>

namespace CLI {
class App;
}

namespace Zephly::exporting {

/// Declares the subcommand on `program`.
tools::Command addExportCommand(CLI::App& program);

/// Declares --edf and --csv on `command`; parsing writes them into `options`, which must live as
/// long.
void addTargets(CLI::App& command, ExportOptions& options);

/// Exports, and writes the defects of the capture on standard error, prefixed with the subcommand
/// `who`; returns the exit code. SIGINT, SIGTERM and SIGHUP interrupt it. Throws as exportCapture()
/// does.
int runExport(ExportOptions options, const std::string& who);

}  // namespace Zephly::exporting

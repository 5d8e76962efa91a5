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

/// What a command writes beside its errors.
enum class Reports { all, none };

/// Exports, shows the progress on a terminal, lists the files on standard output, and writes the
/// defects of the capture on standard error, prefixed with the subcommand `who`; returns the exit
/// code. SIGINT, SIGTERM and SIGHUP interrupt it. Throws as exportCapture() does.
int runExport(ExportOptions options, const std::string& who, Reports reports = Reports::all);

}  // namespace Zephly::exporting

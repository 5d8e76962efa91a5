#pragma once
/// @file
/// `zephly export`: writes a capture as EDF+ and as CSV.

#include <tools/command.h>

namespace CLI {
class App;
}

namespace Zephly::exporting {

/// Declares the subcommand on `program`.
tools::Command addExportCommand(CLI::App& program);

}  // namespace Zephly::exporting

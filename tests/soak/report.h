// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The figures of a soak run as tables in Markdown.
///
///   soak::writeReport(std::cout, options, outcome);

#include <tests/soak/soak.h>

#include <ostream>

namespace soak {

void writeReport(std::ostream& output, const Options& options, const Outcome& outcome);

}  // namespace soak

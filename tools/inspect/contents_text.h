// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The contents of a capture as text for people and as JSON for programs.
///
///   std::cout << contentsText(contents);

#include <tools/common/json_object.h>
#include <tools/inspect/contents.h>

#include <string>

namespace Zephly::inspect {

/// Streams, links, gaps and errors in several lines. Lists are truncated after a screenful. Control
/// characters of texts from the file are replaced.
std::string contentsText(const Contents& contents);

/// Adds the members that docs/capture-format.md describes for `zephly inspect --json`; times in
/// seconds.
void addContents(tools::JsonObject& json, const Contents& contents);

/// "1 record", "2 records"
std::string counted(std::uint64_t count, const std::string& thing);

}  // namespace Zephly::inspect

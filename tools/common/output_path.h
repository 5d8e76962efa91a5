// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The rule for every output file: a symbolic link is followed and stays a link, its target is
/// replaced as a whole; an output is never an input of the same command.
///
///   const std::filesystem::path target = outputTarget("latest.zcap");  // "/data/walk.zcap"
///   refuseInput(target, "walk.csv");
///   // write beside `target`, then rename over it

#include <filesystem>
#include <stdexcept>
#include <string>

namespace Zephly::tools {

/// One line that names the file and says why it cannot be written.
std::runtime_error cannotWrite(const std::filesystem::path& file, const std::string& reason);
std::runtime_error cannotWrite(const std::filesystem::path& file, int errorNumber);

/// `path` itself, or, where `path` is a symbolic link, the file that it leads to through all links.
/// Throws std::runtime_error (see cannotWrite) when a link leads to nothing or in a circle.
std::filesystem::path outputTarget(const std::filesystem::path& path);

/// Whether both are the same file, also through symbolic or hard links, or would be if they
/// existed.
bool isSameFile(const std::filesystem::path& one, const std::filesystem::path& other);

/// Throws std::runtime_error (see cannotWrite) when both are the same file, or `output` is a file
/// that continues the capture `input` (see capture/reader.h). `zephly record` has an input that
/// does not exist yet.
void refuseInput(const std::filesystem::path& output, const std::filesystem::path& input);

}  // namespace Zephly::tools

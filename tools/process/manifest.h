// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// manifest.json: from what the files of a result were computed, and their digests. Written last,
/// so that a directory with a valid manifest is complete. docs/process.md describes it.
///
///   Manifest manifest = {.options = options, .input = digests, .outputs = {}};
///   manifest.outputs.push_back({"events.csv", digestOf(...)});
///   write(manifest.text());
///   const std::optional<Manifest> before = readManifest("results/walk");
///
/// It depends on nothing but the bytes and names of the input, the version and the options.

#include <tools/process/file_digest.h>
#include <tools/process/process_options.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::processing {

inline constexpr const char* manifestName = "manifest.json";

/// A file by its name, without a folder.
struct NamedDigest {
  std::string name;
  FileDigest digest;

  friend bool operator==(const NamedDigest&, const NamedDigest&) = default;
};

struct Manifest {
  std::string program;  ///< that wrote the result, with its version
  Forms forms;
  std::vector<NamedDigest> input;  ///< the files of the capture, the first one first
  std::vector<NamedDigest> outputs;

  std::string text() const;

  friend bool operator==(const Manifest&, const Manifest&) = default;
};

/// Of the program that is running, without outputs.
Manifest newManifest(Forms forms, std::vector<NamedDigest> input);

/// That of a result; empty when there is none or it is not valid JSON of this form. Throws
/// std::runtime_error when it is there and cannot be read.
std::optional<Manifest> readManifest(const std::filesystem::path& directory);

/// Whether every output is there with its size. Reads no file.
bool outputsHaveTheirSizes(const Manifest& manifest, const std::filesystem::path& directory);

/// Whether every output is there with its size and digest. Reads all of them, and calls `read`
/// between, which may throw.
bool outputsHaveTheirDigests(const Manifest& manifest, const std::filesystem::path& directory,
                             const std::function<void()>& read);

/// The content of a small file; empty when there is no regular file of this name, or it has more
/// than `limit` bytes. Throws std::runtime_error, one line, when it cannot be read.
std::optional<std::string> smallFile(const std::filesystem::path& file, std::size_t limit);

}  // namespace Zephly::processing

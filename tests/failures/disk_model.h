// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A file system that remembers what was synchronized. Fed with the log of logged_calls.c, it
/// writes what a disk may hold after a loss of power: of each file the synchronized content, and
/// more or less of what was written since; of each directory the synchronized entries or the
/// latest.
///
///   DiskModel disk(folder);                    // what is there counts as synchronized
///   for (const auto& entry : readLog(log)) {
///     disk.apply(entry);
///     disk.write(place, {.data = Kept::none, .names = Kept::all});
///   }

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace failures {

/// One entry of the log.
struct LogEntry {
  std::string operation;
  std::vector<std::string> arguments;
  std::string bytes;
};

std::vector<LogEntry> readLog(const std::filesystem::path& log);

/// How much of what was not synchronized has reached the disk.
enum class Kept { none, half, all };

struct Loss {
  Kept data{};
  Kept names{};  ///< `half` does not exist for names
};

class DiskModel {
 public:
  explicit DiskModel(const std::filesystem::path& folder);

  void apply(const LogEntry& entry);
  /// Writes the files that are left into an empty folder.
  void write(const std::filesystem::path& place, Loss loss) const;

 private:
  struct Node {
    bool directory = false;
    std::string content;       ///< as the program sees it
    std::string synchronized;  ///< as the disk has it at least
    std::map<std::string, std::shared_ptr<Node>> entries;
    std::map<std::string, std::shared_ptr<Node>> synchronizedEntries;
  };
  using NodePointer = std::shared_ptr<Node>;

  static NodePointer load(const std::filesystem::path& path);
  static void write(const Node& node, const std::filesystem::path& place, Loss loss);
  NodePointer find(const std::string& path) const;
  Node& parent(const std::string& path) const;
  static std::string nameOf(const std::string& path);

  std::filesystem::path folder_;
  NodePointer root_;
  std::map<std::string, NodePointer> open_;  // by descriptor
};

}  // namespace failures

// SPDX-License-Identifier: MIT
#include <tests/failures/disk_model.h>

#include <tests/failures/content.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace failures {

namespace fs = std::filesystem;

std::vector<LogEntry> readLog(const fs::path& log) {
  std::ifstream file(log, std::ios::binary);
  std::vector<LogEntry> entries;
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    LogEntry entry;
    words >> entry.operation;
    for (std::string word; words >> word;) entry.arguments.push_back(word);
    if (entry.operation == "write" || entry.operation == "sync") {
      entry.bytes.resize(std::stoul(entry.arguments.at(1)));
      file.read(entry.bytes.data(), static_cast<std::streamsize>(entry.bytes.size()));
    }
    entries.push_back(std::move(entry));
  }
  return entries;
}

DiskModel::DiskModel(const fs::path& folder) : folder_(folder), root_(load(folder)) {}

DiskModel::NodePointer DiskModel::load(const fs::path& path) {
  auto node = std::make_shared<Node>();
  node->directory = fs::is_directory(path);
  if (!node->directory) {
    node->content = node->synchronized = contentOf(path);
    return node;
  }
  for (const auto& entry : fs::directory_iterator(path)) {
    node->entries[entry.path().filename().string()] = load(entry.path());
  }
  node->synchronizedEntries = node->entries;
  return node;
}

DiskModel::NodePointer DiskModel::find(const std::string& path) const {
  NodePointer node = root_;
  for (const fs::path& part : fs::path(path).lexically_relative(folder_)) {
    if (part == ".") continue;
    const auto found = node->entries.find(part.string());
    if (found == node->entries.end()) return nullptr;
    node = found->second;
  }
  return node;
}

DiskModel::Node& DiskModel::parent(const std::string& path) const {
  const NodePointer node = find(fs::path(path).parent_path().string());
  if (!node) throw std::runtime_error("the log has no directory for " + path);
  return *node;
}

std::string DiskModel::nameOf(const std::string& path) {
  return fs::path(path).filename().string();
}

void DiskModel::apply(const LogEntry& entry) {
  const auto& arguments = entry.arguments;
  const std::string& operation = entry.operation;
  if (operation == "open") {
    const std::string& path = arguments.at(2);
    NodePointer node = find(path);
    if (!node) {
      node = std::make_shared<Node>();
      parent(path).entries[nameOf(path)] = node;
    }
    open_[arguments.at(0)] = node;
  } else if (operation == "close") {
    open_.erase(arguments.at(0));
  } else if (operation == "write") {
    open_.at(arguments.at(0))->content += entry.bytes;
  } else if (operation == "truncate") {
    open_.at(arguments.at(0))->content.resize(std::stoul(arguments.at(1)));
  } else if (operation == "sync") {
    Node& node = *open_.at(arguments.at(0));
    if (node.directory) {
      node.synchronizedEntries = node.entries;
    } else {
      node.content = node.synchronized = entry.bytes;
    }
  } else if (operation == "mkdir") {
    auto node = std::make_shared<Node>();
    node->directory = true;
    parent(arguments.at(0)).entries[nameOf(arguments.at(0))] = node;
  } else if (operation == "unlink") {
    parent(arguments.at(0)).entries.erase(nameOf(arguments.at(0)));
  } else {
    NodePointer& from = parent(arguments.at(0)).entries[nameOf(arguments.at(0))];
    NodePointer& to = parent(arguments.at(1)).entries[nameOf(arguments.at(1))];
    std::swap(from, to);
    if (operation == "rename") parent(arguments.at(0)).entries.erase(nameOf(arguments.at(0)));
  }
}

void DiskModel::write(const fs::path& place, Loss loss) const { write(*root_, place, loss); }

void DiskModel::write(const Node& node, const fs::path& place, Loss loss) {
  if (node.directory) {
    fs::create_directories(place);
    for (const auto& [name, entry] :
         loss.names == Kept::all ? node.entries : node.synchronizedEntries) {
      if (entry) write(*entry, place / name, loss);
    }
    return;
  }
  std::string content = loss.data == Kept::none ? node.synchronized : node.content;
  if (loss.data == Kept::half && node.content.size() > node.synchronized.size()) {
    content.resize((node.content.size() + node.synchronized.size()) / 2);
  }
  std::ofstream(place, std::ios::binary) << content;
}

}  // namespace failures

// SPDX-License-Identifier: MIT
#include <capture/parts.h>

#include <capture/file_names.h>

#include <charconv>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace Zephly::capture {

namespace {

// The number in the name of a file, "2" of "walk.2.zcap"; empty when `name` is none of `first`.
std::optional<std::uint32_t> numberIn(const std::string& name, const std::filesystem::path& first) {
  const std::string begin = first.stem().string() + ".";
  const std::string end = first.extension().string();
  if (name.size() <= begin.size() + end.size() || !name.starts_with(begin) ||
      !name.ends_with(end)) {
    return std::nullopt;
  }
  const std::string_view digits(name.data() + begin.size(),
                                name.size() - begin.size() - end.size());
  std::uint32_t number = 0;
  const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (parsed.ec != std::errc() || parsed.ptr != digits.data() + digits.size()) return std::nullopt;
  return number;
}

}  // namespace

std::filesystem::path partOf(const std::filesystem::path& first, std::uint32_t number) {
  std::filesystem::path part = first;
  part.replace_filename(first.stem().string() + "." + std::to_string(number) +
                        first.extension().string());
  return part;
}

std::vector<std::filesystem::path> existingParts(const std::filesystem::path& first) {
  std::error_code failed;
  std::filesystem::path file = first;
  if (std::filesystem::is_symlink(first, failed)) file = std::filesystem::canonical(first, failed);
  const std::filesystem::path folder = file.has_parent_path() ? file.parent_path() : ".";
  std::map<std::uint32_t, std::filesystem::path> found;
  for (const std::string& name : fileNames(folder, failed)) {
    const auto number = numberIn(name, file);
    if (number) found[*number] = partOf(file, *number);
  }
  std::vector<std::filesystem::path> parts;
  parts.reserve(found.size());
  for (const auto& [number, path] : found) parts.push_back(path);
  return parts;
}

bool belongTogether(const Preamble& first, const Preamble& other) {
  return other.continues && first.began == other.began && first.simulated == other.simulated &&
         first.program == other.program && first.source == other.source;
}

}  // namespace Zephly::capture

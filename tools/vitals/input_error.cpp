// SPDX-License-Identifier: MIT
#include <tools/vitals/input_error.h>

#include <capture/text.h>

namespace Zephly::recorders {

InputError::InputError(const std::filesystem::path& file, std::uint64_t offset,
                       const std::string& reason)
    : std::runtime_error(capture::printable(file.string() + ": at byte " + std::to_string(offset) +
                                            ": " + reason)) {}

InputError::InputError(const std::filesystem::path& file, const std::string& reason)
    : std::runtime_error(capture::printable(file.string() + ": " + reason)) {}

std::string excerpt(std::string_view text) {
  constexpr std::size_t longest = 40;
  return "\"" + capture::printable(text.substr(0, longest)) +
         (text.size() > longest ? "...\"" : "\"");
}

}  // namespace Zephly::recorders

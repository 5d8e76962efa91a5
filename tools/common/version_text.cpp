// SPDX-License-Identifier: MIT
#include <tools/common/version_text.h>

#include <zephly/session/version.h>

#include <algorithm>
#include <string_view>

namespace Zephly::tools {

std::string programName() {
  const std::string number = std::to_string(ZephlyVersionNumber);
  // At least one digit stays after the point.
  const std::size_t last = std::max(number.find_last_not_of('0'), number.find('.') + 1);
  return "zephly " + number.substr(0, last + 1);
}

std::string versionText() {
  std::string_view record = ZephlyVersionString;
  record.remove_prefix(std::string_view("@(#)").size());
  record.remove_suffix(1);
  return programName() + " (" + std::string(record) + ")";
}

}  // namespace Zephly::tools

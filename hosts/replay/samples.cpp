// SPDX-License-Identifier: MIT
#include <hosts/replay/samples.h>

#include <utility>

namespace Zephly::replay {

std::vector<std::string> columnsOf(Stream stream) {
  if (stream == Stream::respiration) return {"raw", "processed"};
  std::vector<std::string> columns;
  for (const Channel& channel : streamInfo(stream).channels) {
    std::string column(channel.name);
    if (!channel.unit.empty()) column += '_' + std::string(channel.unit);
    columns.push_back(std::move(column));
  }
  if (stream == Stream::temperature) columns.emplace_back("body_estimate_degC");
  return columns;
}

}  // namespace Zephly::replay

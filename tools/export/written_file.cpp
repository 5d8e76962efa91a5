// SPDX-License-Identifier: MIT
#include <tools/export/written_file.h>

#include <capture/text.h>
#include <tools/common/text_stream.h>

#include <algorithm>
#include <array>
#include <iomanip>

namespace Zephly::exporting {

std::string sizeText(std::uint64_t bytes) {
  constexpr std::array units = {"kB", "MB", "GB", "TB"};
  constexpr double step = 1000;
  if (bytes < 1000) return std::to_string(bytes) + " B";
  double size = static_cast<double>(bytes) / step;
  std::size_t unit = 0;
  // What would be shown as 1000.0 is 1.0 of the next unit.
  for (; size >= step - 0.05 && unit + 1 < units.size(); ++unit) size /= step;
  tools::TextStream text;
  text << std::fixed << std::setprecision(1) << size << ' ' << units.at(unit);
  return text.str();
}

namespace {

std::string spanText(const WrittenFile& file) {
  if (!file.span) return "empty";
  return capture::clockText(file.span->from) + " to " + capture::clockText(file.span->to);
}

std::string rowsText(const WrittenFile& file) {
  if (!file.rows) return "";
  return std::to_string(*file.rows) + (*file.rows == 1 ? " row" : " rows");
}

}  // namespace

std::string writtenText(const std::vector<WrittenFile>& files) {
  std::vector<std::array<std::string, 4>> lines;
  for (const WrittenFile& file : files) {
    lines.push_back({capture::printable(file.path.string()), sizeText(file.bytes), spanText(file),
                     rowsText(file)});
  }
  std::array<std::size_t, 4> widths{};
  for (const auto& line : lines) {
    for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  }
  std::string text;
  for (const auto& [path, size, span, rows] : lines) {
    const auto blanks = [](std::size_t width, const std::string& cell) {
      return std::string(width - cell.size() + 2, ' ');
    };
    text += path + std::string(widths[0] - path.size(), ' ') + blanks(widths[1], size) + size +
            "  " + span;
    if (!rows.empty()) text += blanks(widths[2], span) + blanks(widths[3], rows).substr(2) + rows;
    text += '\n';
  }
  return text;
}

}  // namespace Zephly::exporting

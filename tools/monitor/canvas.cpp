// SPDX-License-Identifier: MIT
#include <tools/monitor/canvas.h>

#include <capture/text.h>

#include <algorithm>

namespace Zephly::monitor {

namespace {

std::string_view escape(Style style, Colors colors) {
  const bool colored = colors == Colors::ansi;
  switch (style) {
    case Style::normal:
      return "";
    case Style::bold:
      return "\x1b[1m";
    case Style::dim:
      return "\x1b[2m";
    case Style::good:
      return colored ? "\x1b[32m" : "";
    case Style::warning:
      return colored ? "\x1b[1;30;43m" : "\x1b[7m";
    case Style::alarm:
      return colored ? "\x1b[1;37;41m" : "\x1b[1;7m";
    case Style::ecg:
      return colored ? "\x1b[32m" : "";
    case Style::respiration:
      return colored ? "\x1b[36m" : "";
  }
  return "";
}

}  // namespace

std::size_t cellCount(std::string_view text) {
  std::size_t cells = 0;
  for (; !text.empty(); text.remove_prefix(capture::characterLength(text))) ++cells;
  return cells;
}

Canvas::Canvas(std::size_t width, std::size_t height)
    : width_(width), rows_(height, std::vector<Cell>(width)) {}

std::size_t Canvas::put(std::size_t row, std::size_t column, std::string_view text, Style style) {
  while (!text.empty()) {
    const std::string_view character = text.substr(0, capture::characterLength(text));
    if (row < height() && column < width_) {
      rows_[row][column] = {capture::printableCharacter(character), style};
    }
    ++column;
    text.remove_prefix(character.size());
  }
  return column;
}

void Canvas::putRight(std::size_t row, std::size_t endColumn, std::string_view text, Style style) {
  const std::size_t cells = cellCount(text);
  put(row, endColumn > cells ? endColumn - cells : 0, text, style);
}

void Canvas::setRowStyle(std::size_t row, Style style) {
  if (row >= height()) return;
  for (Cell& cell : rows_[row]) cell.style = style;
}

void Canvas::fill(std::size_t row, std::string_view character, Style style) {
  for (std::size_t column = 0; column < width_; ++column) put(row, column, character, style);
}

std::size_t Canvas::usedCells(std::size_t row, bool blanksWithStyle) const {
  const auto& cells = rows_.at(row);
  std::size_t used = cells.size();
  while (used > 0 && cells[used - 1].character == " " &&
         (!blanksWithStyle || cells[used - 1].style == Style::normal)) {
    --used;
  }
  return used;
}

std::string Canvas::plainRow(std::size_t row) const {
  std::string text;
  for (std::size_t column = 0; column < usedCells(row, false); ++column) {
    text += rows_[row][column].character;
  }
  return text;
}

std::string Canvas::ansiRow(std::size_t row, Colors colors) const {
  std::string text;
  std::string_view current;
  for (std::size_t column = 0; column < usedCells(row, true); ++column) {
    const Cell& cell = rows_[row][column];
    const std::string_view wanted = escape(cell.style, colors);
    if (wanted != current) {
      if (!current.empty()) text += "\x1b[0m";
      text += wanted;
      current = wanted;
    }
    text += cell.character;
  }
  if (!current.empty()) text += "\x1b[0m";
  return text;
}

}  // namespace Zephly::monitor

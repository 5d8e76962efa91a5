// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A picture made of characters, for the terminal.
///
///   Canvas canvas(80, 24);
///   canvas.put(0, 2, "ECG", Style::bold);
///   canvas.plainRow(0);   // "  ECG"
///
/// Text is UTF-8 and every character takes one cell; control characters, which could drive the
/// terminal, become '?'. What does not fit is cut off.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::monitor {

enum class Style { normal, bold, dim, good, warning, alarm, ecg, respiration };

/// Whether a terminal may be asked for colours (https://no-color.org).
enum class Colors { none, ansi };

class Canvas {
 public:
  Canvas(std::size_t width, std::size_t height);

  std::size_t width() const { return width_; }
  std::size_t height() const { return rows_.size(); }

  /// Returns the column behind the text, as if nothing had been cut off.
  std::size_t put(std::size_t row, std::size_t column, std::string_view text,
                  Style style = Style::normal);
  /// The text ends before `endColumn`.
  void putRight(std::size_t row, std::size_t endColumn, std::string_view text,
                Style style = Style::normal);
  /// Gives the whole row one style.
  void setRowStyle(std::size_t row, Style style);
  void fill(std::size_t row, std::string_view character, Style style);

  /// The row without styles and without blanks at its end.
  std::string plainRow(std::size_t row) const;
  /// The row as a terminal takes it: no cursor movement, styles reset at the end.
  std::string ansiRow(std::size_t row, Colors colors) const;

 private:
  struct Cell {
    std::string character = " ";
    Style style = Style::normal;
  };

  std::size_t usedCells(std::size_t row, bool blanksWithStyle) const;

  std::size_t width_;
  std::vector<std::vector<Cell>> rows_;
};

/// How many cells UTF-8 text takes.
std::size_t cellCount(std::string_view text);

}  // namespace Zephly::monitor

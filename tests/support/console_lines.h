// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A stream buffer that collects what is written to it as lines, without their ends.

#include <streambuf>
#include <string>
#include <utility>
#include <vector>

class ConsoleLines final : public std::streambuf {
 public:
  explicit ConsoleLines(std::vector<std::string>& lines) : lines_(lines) {}

 protected:
  int_type overflow(int_type character) override {
    if (character == '\n') {
      lines_.push_back(std::exchange(line_, {}));
    } else {
      line_ += traits_type::to_char_type(character);
    }
    return character;
  }

 private:
  std::vector<std::string>& lines_;
  std::string line_;
};

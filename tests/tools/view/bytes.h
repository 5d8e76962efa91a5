// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Writes the messages to and from the live page byte by byte.

#include <initializer_list>
#include <string>

inline std::string bytes(std::initializer_list<int> values) {
  std::string text;
  for (const int value : values) text += static_cast<char>(value);
  return text;
}

// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Captures the output to std::cout during its lifetime.

#include <iostream>
#include <sstream>
#include <string>

class CapturedOutput {
 public:
  CapturedOutput() : original_(std::cout.rdbuf(captured_.rdbuf())) {}
  ~CapturedOutput() { std::cout.rdbuf(original_); }
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  std::string text() const { return captured_.str(); }

 private:
  std::ostringstream captured_;
  std::streambuf* original_;
};

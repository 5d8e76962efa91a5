// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Discards the kit's output to standard output during its lifetime: a run would print millions of
/// diagnostic lines.

#include <iostream>
#include <streambuf>

namespace fuzz {

class Quiet {
 public:
  Quiet() : before_(std::cout.rdbuf(&nowhere_)) {}
  ~Quiet() { std::cout.rdbuf(before_); }
  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;

 private:
  class Nowhere : public std::streambuf {
   protected:
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
    std::streamsize xsputn(const char* /*text*/, std::streamsize count) override { return count; }
  };

  Nowhere nowhere_;
  std::streambuf* before_;
};

}  // namespace fuzz

#pragma once
/// @file
/// Throws away what the kit writes to standard output while the object lives: diagnostic lines by
/// the million are not what a run is for.

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

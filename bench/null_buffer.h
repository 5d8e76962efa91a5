#pragma once
/// @file
/// Takes standard output's buffer away for a while, so that what the kit prints costs its
/// formatting and nothing else.
///
///   const SilentOutput silent;   // until the end of the block

#include <iostream>
#include <streambuf>

namespace bench {

/// Takes everything and keeps nothing.
class NullBuffer : public std::streambuf {
 protected:
  int_type overflow(int_type character) override { return traits_type::not_eof(character); }
  std::streamsize xsputn(const char* /*text*/, std::streamsize count) override { return count; }
};

/// std::cout on `buffer` while this object lives.
class RedirectedOutput {
 public:
  explicit RedirectedOutput(std::streambuf* buffer) : before_(std::cout.rdbuf(buffer)) {}
  ~RedirectedOutput() { std::cout.rdbuf(before_); }
  RedirectedOutput(const RedirectedOutput&) = delete;
  RedirectedOutput& operator=(const RedirectedOutput&) = delete;

 private:
  std::streambuf* before_;
};

/// std::cout on a NullBuffer of its own.
class SilentOutput {
 public:
  SilentOutput() : redirected_(&buffer_) {}

 private:
  NullBuffer buffer_;
  RedirectedOutput redirected_;
};

}  // namespace bench

// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Replaces the buffer of standard output temporarily, so that printing costs only the formatting.
///
///   const SilentOutput silent;   // until the end of the block

#include <iostream>
#include <streambuf>

namespace bench {

/// Discards everything.
class NullBuffer : public std::streambuf {
 protected:
  int_type overflow(int_type character) override { return traits_type::not_eof(character); }
  std::streamsize xsputn(const char* /*text*/, std::streamsize count) override { return count; }
};

/// std::cout writes to `buffer` during the lifetime of this object.
class RedirectedOutput {
 public:
  explicit RedirectedOutput(std::streambuf* buffer) : before_(std::cout.rdbuf(buffer)) {}
  ~RedirectedOutput() { std::cout.rdbuf(before_); }
  RedirectedOutput(const RedirectedOutput&) = delete;
  RedirectedOutput& operator=(const RedirectedOutput&) = delete;

 private:
  std::streambuf* before_;
};

/// std::cout writes to a NullBuffer.
class SilentOutput {
 public:
  SilentOutput() : redirected_(&buffer_) {}

 private:
  NullBuffer buffer_;
  RedirectedOutput redirected_;
};

}  // namespace bench

// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Both ends of a pipe, closed on destruction.

#include <hosts/main_queue/file_descriptor.h>

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>

class Pipe {
 public:
  Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    reading_ = Zephly::main_queue::FileDescriptor(ends[0]);
    writing_ = Zephly::main_queue::FileDescriptor(ends[1]);
  }

  int reading() const { return reading_.get(); }
  int writing() const { return writing_.get(); }

  void put(char byte) const {
    if (::write(writing_.get(), &byte, 1) != 1) throw std::runtime_error("write failed");
  }
  /// Blocks while the pipe is empty.
  char take() const {
    char byte = 0;
    if (::read(reading_.get(), &byte, 1) != 1) throw std::runtime_error("read failed");
    return byte;
  }

 private:
  Zephly::main_queue::FileDescriptor reading_;
  Zephly::main_queue::FileDescriptor writing_;
};

// SPDX-License-Identifier: MIT
#include <zephly/dsp/sample_array.h>

#include <zephly/platform/fatal_error.h>

#include <cstddef>
#include <new>
#include <string>

namespace Zephly {

namespace {

std::unique_ptr<double[]> allocate(int count) {
  // Thrown here because compilers differ: some turn a negative count into a request for all memory,
  // on which an instrumented allocator ends the program.
  if (count < 0) throw std::bad_array_new_length();
  return std::make_unique<double[]>(static_cast<std::size_t>(count));
}

}  // namespace

SampleArray::SampleArray(int count) : samples_(allocate(count)), count_(count) {}

void refuseNumbers(std::string_view what, int number, int first, int last) {
  if (number < first || number > last) return;
  fatalError(std::string(what) + " " + std::to_string(number) + " is too small, the least is " +
             std::to_string(last + 1));
}

}  // namespace Zephly

// SPDX-License-Identifier: MIT
#include <tests/soak/process_state.h>

#include <tests/support/allocation_count.h>

#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace soak {

namespace {

std::size_t entries(const char* folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

std::size_t residentBytes() {
  std::ifstream file("/proc/self/statm");
  std::size_t size = 0;
  std::size_t resident = 0;
  file >> size >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace

ProcessState processState() {
  ProcessState state;
  state.liveBlocks = liveAllocationCount();
  const struct mallinfo2 heap = ::mallinfo2();
  state.heapBytes = heap.uordblks + heap.hblkhd;
  state.residentBytes = residentBytes();
  state.descriptors = entries("/proc/self/fd");
  state.threads = entries("/proc/self/task");
  return state;
}

}  // namespace soak

// SPDX-License-Identifier: MIT
#include <bench/allocation_sites.h>

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <string_view>

namespace {

constexpr std::size_t framesKept = 16;
constexpr std::size_t recordsKept = 20'000;

struct Record {
  std::array<void*, framesKept> frames;
  int depth;
};

bool recording = false;
std::size_t allocations = 0;
std::size_t bytes = 0;
std::array<Record, recordsKept> records;

void* recordedAllocation(std::size_t size) {
  if (recording) {
    recording = false;  // backtrace may allocate
    if (allocations < recordsKept) {
      Record& record = records[allocations];
      record.depth = backtrace(record.frames.data(), framesKept);
    }
    ++allocations;
    bytes += size;
    recording = true;
  }
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

// The function that an address lies in; empty when its name is not exported.
std::string functionAt(void* address) {
  Dl_info info{};
  if (dladdr(address, &info) == 0 || info.dli_sname == nullptr) return {};
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> demangled(
      abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status), &std::free);
  return status == 0 ? demangled.get() : info.dli_sname;
}

bool isLibrary(std::string_view function) {
  constexpr std::array<std::string_view, 6> prefixes = {"operator new", "std::",   "__gnu",
                                                        "void std::",   "bench::", "void* "};
  return function.empty() || std::any_of(prefixes.begin(), prefixes.end(), [&](auto prefix) {
           return function.substr(0, prefix.size()) == prefix;
         });
}

// As Markdown code, without its parameters.
std::string quotedName(const std::string& function) {
  std::string text = "`";
  text.append(function, 0, function.find('('));
  return text.append("`");
}

std::string siteOf(const Record& record) {
  for (int frame = 0; frame < record.depth; ++frame) {
    const std::string function = functionAt(record.frames[static_cast<std::size_t>(frame)]);
    if (function == "main") return "the caller";
    if (!isLibrary(function)) return quotedName(function);
  }
  return "a function without a name";
}

}  // namespace

void* operator new(std::size_t size) { return recordedAllocation(size); }
void* operator new[](std::size_t size) { return recordedAllocation(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace bench {

AllocationReport allocationsOf(const std::function<void()>& work) {
  std::array<void*, 1> unused{};
  backtrace(unused.data(), 1);  // loads what it needs the first time
  allocations = 0;
  bytes = 0;
  recording = true;
  work();
  recording = false;

  AllocationReport report{.allocations = allocations, .bytes = bytes, .sites = {}};
  std::map<std::string, std::size_t> bySite;
  for (std::size_t index = 0; index < std::min(report.allocations, recordsKept); ++index) {
    ++bySite[siteOf(records[index])];
  }
  for (const auto& [function, count] : bySite) report.sites.push_back({function, count});
  std::sort(report.sites.begin(), report.sites.end(), [](const auto& left, const auto& right) {
    return left.allocations > right.allocations;
  });
  return report;
}

}  // namespace bench

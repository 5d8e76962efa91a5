// SPDX-License-Identifier: MIT
// The order of the calls that decides what a power failure leaves: data first, then the name, then
// the directory that holds the name.

#include <tests/support/captures.h>
#include <tests/tools/export/session_script.h>
#include <tools/export/exporter.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

namespace {

std::vector<std::string>* calls = nullptr;

void noteCall(const std::string& call) {
  if (calls != nullptr)
    calls->push_back(std::regex_replace(call, std::regex("part-[0-9]+"), "part"));
}

}  // namespace

// These replace the functions of the C library in this program.
extern "C" {

int fsync(int descriptor) {
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  if (calls != nullptr) noteCall("sync " + std::filesystem::read_symlink(link).filename().string());
  return static_cast<int>(::syscall(SYS_fsync, descriptor));
}

int rename(const char* from, const char* to) noexcept {
  noteCall("name " + std::filesystem::path(to).filename().string());
  return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
              unsigned flags) noexcept {
  noteCall("name " + std::filesystem::path(to).filename().string());
  return static_cast<int>(::syscall(SYS_renameat2, fromDirectory, from, toDirectory, to, flags));
}
}

namespace {

using namespace std::chrono_literals;
using captures::ScratchDirectory;
using testing::ElementsAre;
using testing::UnorderedElementsAre;
using Zephly::exporting::Existing;

std::vector<std::string> callsOfAnExport(const ScratchDirectory& scratch, bool edf) {
  exporting_test::SessionScript script;
  script.connect(1s);
  script.end(2s);
  Zephly::exporting::ExportOptions options{.capture = scratch.file("a.zcap", script.bytes()),
                                           .existing = Existing::replaced};
  (edf ? options.edf : options.csv) = scratch / "out";
  std::vector<std::string> noted;
  calls = &noted;
  exportCapture(options);
  calls = nullptr;
  return noted;
}

TEST(DurabilityTest, AnEdfFileIsSynchronizedThenNamedThenItsDirectoryIsSynchronized) {
  const ScratchDirectory scratch;
  const std::string folder = scratch.path().filename();
  for (int round = 0; round < 2; ++round) {
    EXPECT_THAT(callsOfAnExport(scratch, true),
                ElementsAre("sync out.part", "name out", "sync " + folder));
  }
}

TEST(DurabilityTest, ASetOfCsvFilesIsSynchronizedThenNamedThenItsDirectoryIsSynchronized) {
  const ScratchDirectory scratch;
  const std::string folder = scratch.path().filename();
  for (int round = 0; round < 2; ++round) {
    std::vector<std::string> noted = callsOfAnExport(scratch, false);
    ASSERT_EQ(noted.size(), 12U);
    const std::vector<std::string> last(noted.begin() + 9, noted.end());
    EXPECT_THAT(last, ElementsAre("sync out.part", "name out", "sync " + folder));
    noted.resize(9);
    EXPECT_THAT(noted,
                UnorderedElementsAre("sync ecg.csv", "sync respiration.csv", "sync temperature.csv",
                                     "sync motion.csv", "sync battery.csv", "sync events.csv",
                                     "sync beats.csv", "sync breaths.csv", "sync vitals.csv"));
  }
}

}  // namespace

// SPDX-License-Identifier: MIT
#include <tools/monitor/diagnostics_file.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <system_error>

namespace Zephly::monitor {
namespace {

TEST(DiagnosticsFileTest, HoldsEveryLineAndNoneOfAPreviousFile) {
  const std::filesystem::path path =
      std::filesystem::path(testing::TempDir()) / ("lines-" + std::to_string(::getpid()));
  std::ofstream(path) << "something much longer than what is written now\n";
  DiagnosticsFile file(path);
  file.writeLine("one");
  file.writeLine("");
  file.writeLine("three");
  EXPECT_FALSE(file.finish());
  std::ifstream stream(path);
  const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  std::filesystem::remove(path);
  EXPECT_EQ(text, "one\n\nthree\n");
}

TEST(DiagnosticsFileTest, HoldsWhatIsWrittenToItAsAStreamBuffer) {
  const std::filesystem::path path =
      std::filesystem::path(testing::TempDir()) / ("stream-" + std::to_string(::getpid()));
  DiagnosticsFile file(path);
  std::ostream console(&file);
  console << "one " << 0.5F << std::endl;
  file.writeLine("two");
  console << 't' << "hree\n";
  EXPECT_FALSE(file.finish());
  std::ifstream stream(path);
  const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  std::filesystem::remove(path);
  EXPECT_EQ(text, "one 0.5\ntwo\nthree\n");
}

TEST(DiagnosticsFileTest, ReportsWhyItCannotBeOpened) {
  try {
    const DiagnosticsFile file("/nonexistent/file");
    ADD_FAILURE() << "it was opened";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENOENT);
  }
}

TEST(DiagnosticsFileTest, ReportsWhyItCannotBeWritten) {
  DiagnosticsFile file("/dev/full");
  file.writeLine("one");
  EXPECT_EQ(file.finish(), "No space left on device");
}

}  // namespace
}  // namespace Zephly::monitor

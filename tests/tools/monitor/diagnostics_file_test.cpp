// SPDX-License-Identifier: MIT
#include <tools/monitor/diagnostics_file.h>

#include <capture/file_lock.h>
#include <tests/support/captures.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <stdexcept>
#include <string>

namespace Zephly::monitor {
namespace {

using testing::HasSubstr;

class DiagnosticsFileTest : public testing::Test {
 protected:
  // The line of the exception; "none" without one.
  static std::string errorOf(const std::filesystem::path& path,
                             const DiagnosticsOptions& options = {}) {
    try {
      const DiagnosticsFile file(path, options);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "none";
  }
  static std::string textOf(const std::filesystem::path& path) {
    std::ifstream stream(path);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  }
  // A file of one line.
  std::filesystem::path existing(const std::string& name) {
    std::ofstream(scratch_ / name) << "keep\n";
    return scratch_ / name;
  }
  std::size_t files() const {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(scratch_.path()), {}));
  }

  captures::ScratchDirectory scratch_;
};

TEST_F(DiagnosticsFileTest, HoldsEveryLine) {
  DiagnosticsFile file(scratch_ / "lines", {});
  file.writeLine("one");
  file.writeLine("");
  file.flush();
  EXPECT_EQ(textOf(scratch_ / "lines"), "one\n\n");
  file.writeLine("three");
  EXPECT_FALSE(file.finish());
  EXPECT_EQ(textOf(scratch_ / "lines"), "one\n\nthree\n");
}

TEST_F(DiagnosticsFileTest, HoldsWhatIsWrittenToItAsAStreamBuffer) {
  DiagnosticsFile file(scratch_ / "lines", {});
  std::ostream console(&file);
  console << "one " << 0.5F << std::endl;
  file.writeLine("two");
  console << 't' << "hree\n";
  EXPECT_FALSE(file.finish());
  EXPECT_EQ(textOf(scratch_ / "lines"), "one 0.5\ntwo\nthree\n");
}

TEST_F(DiagnosticsFileTest, ReplacesAFileOnlyIfItMay) {
  const auto path = existing("lines");
  EXPECT_EQ(errorOf(path), "cannot write " + path.string() + ": it exists already (see --force)");
  EXPECT_EQ(textOf(path), "keep\n");
  DiagnosticsFile file(path, {.overwrite = true});
  file.writeLine("new");
  EXPECT_EQ(textOf(path), "keep\n");
  file.flush();
  EXPECT_EQ(textOf(path), "new\n");
  file.writeLine("more");
  EXPECT_FALSE(file.finish());
  EXPECT_EQ(textOf(path), "new\nmore\n");
  EXPECT_EQ(files(), 1U);
}

TEST_F(DiagnosticsFileTest, ASessionThatDoesNotBeginLeavesNothing) {
  { const DiagnosticsFile file(scratch_ / "lines", {}); }
  EXPECT_EQ(files(), 0U);
  const auto path = existing("lines");
  { const DiagnosticsFile file(path, {.overwrite = true}); }
  EXPECT_EQ(textOf(path), "keep\n");
  EXPECT_EQ(files(), 1U);
}

TEST_F(DiagnosticsFileTest, RefusesAnInputUnderAnyName) {
  const auto input = existing("walk.zcap");
  std::filesystem::create_hard_link(input, scratch_ / "hard");
  std::filesystem::create_symlink(input, scratch_ / "soft");
  for (const char* name : {"walk.zcap", "hard", "soft"}) {
    EXPECT_THAT(errorOf(scratch_ / name, {.overwrite = true, .inputs = {input}}),
                HasSubstr("it is the input"));
  }
  EXPECT_EQ(textOf(input), "keep\n");
}

TEST_F(DiagnosticsFileTest, RefusesACaptureThatIsBeingRecorded) {
  const auto path = existing("walk.zcap");
  const auto lock = capture::FileLock::take(path);
  EXPECT_EQ(errorOf(path, {.overwrite = true}),
            "cannot write " + path.string() + ": another program is recording to it");
  EXPECT_EQ(textOf(path), "keep\n");
}

TEST_F(DiagnosticsFileTest, ALinkStaysALinkAndItsTargetIsReplaced) {
  const auto target = existing("target");
  std::filesystem::create_symlink("target", scratch_ / "link");
  EXPECT_THAT(errorOf(scratch_ / "link"), HasSubstr("it exists already"));
  DiagnosticsFile file(scratch_ / "link", {.overwrite = true});
  file.writeLine("new");
  EXPECT_FALSE(file.finish());
  EXPECT_TRUE(std::filesystem::is_symlink(scratch_ / "link"));
  EXPECT_EQ(textOf(target), "new\n");
}

TEST_F(DiagnosticsFileTest, RefusesAPipeADirectoryAndADeviceAtOnce) {
  const auto pipe = scratch_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::filesystem::path& path :
       {pipe, scratch_.path(), std::filesystem::path("/dev/full")}) {
    EXPECT_EQ(errorOf(path, {.overwrite = true}),
              "cannot write " + path.string() + ": not a regular file");
  }
}

TEST_F(DiagnosticsFileTest, ReportsWhyItCannotBeOpened) {
  EXPECT_EQ(errorOf("/nonexistent/file"),
            "cannot write /nonexistent/file: No such file or directory");
}

// The limit of the file size is that of this process: nothing else may write meanwhile.
TEST_F(DiagnosticsFileTest, ReportsWhyItCannotBeWrittenAndKeepsTheFileBefore) {
  const auto path = existing("lines");
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handlerBefore = std::signal(SIGXFSZ, SIG_IGN);
  DiagnosticsFile file(path, {.overwrite = true});
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &none), 0);
  file.writeLine("new");
  const auto error = file.finish();
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  static_cast<void>(std::signal(SIGXFSZ, handlerBefore));
  EXPECT_EQ(error, "cannot write " + path.string() + ": File too large");
  EXPECT_EQ(textOf(path), "keep\n");
}

}  // namespace
}  // namespace Zephly::monitor

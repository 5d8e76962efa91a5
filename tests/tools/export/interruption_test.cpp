// SPDX-License-Identifier: MIT
#include <tests/support/captures.h>
#include <tests/tools/export/session_script.h>
#include <tools/export/end_signals.h>
#include <tools/export/export_command.h>
#include <tools/export/exporter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>

namespace Zephly::exporting {
namespace {

using namespace std::chrono_literals;
using captures::ScratchDirectory;
using exporting_test::SessionScript;
using testing::HasSubstr;

constexpr int frames = 100;

SessionScript script() {
  SessionScript made;
  made.connect(1s);
  for (int frame = 1; frame <= frames; ++frame) made.ecg(1s + frame * 12ms, {1, 2, 3, 4, 5, 6});
  made.end(3s);
  return made;
}

// Whether only the capture exists.
bool nothingWritten(const ScratchDirectory& scratch) {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(scratch.path())) {
    if (entry.path() != scratch / "a.zcap") return false;
  }
  return true;
}

int received = 0;

// Sets the test process's handling of a signal until the end of the test.
class Handler {
 public:
  Handler(int signal, void (*handler)(int))
      : signal_(signal), before_(std::signal(signal, handler)) {
    received = 0;
  }
  Handler(const Handler&) = delete;
  Handler& operator=(const Handler&) = delete;
  ~Handler() { static_cast<void>(std::signal(signal_, before_)); }

 private:
  int signal_;
  void (*before_)(int);
};

void count(int /*signal*/) { ++received; }

TEST(InterruptionTest, LeavesNoFileWhenInterruptedAtAnyRecord) {
  for (const int after : {0, 1, frames, frames + 5, 2 * frames}) {
    const ScratchDirectory scratch;
    int asked = 0;
    try {
      exportCapture({.capture = scratch.file("a.zcap", script().bytes()),
                     .edf = scratch / "a.edf",
                     .csv = scratch / "csv",
                     .interrupted = [&] { return asked++ == after; }});
      FAIL() << "exported, asked " << asked << " times";
    } catch (const std::runtime_error& error) {
      EXPECT_THAT(error.what(), HasSubstr("interrupted"));
    }
    EXPECT_TRUE(nothingWritten(scratch)) << after;
  }
}

TEST(InterruptionTest, RecordsSignalsDuringItsLifetime) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const Handler handler(signal, count);
    {
      const EndSignals signals;
      EXPECT_FALSE(EndSignals::came());
      ASSERT_EQ(std::raise(signal), 0);
      EXPECT_TRUE(EndSignals::came());
    }
    EXPECT_EQ(received, 0);
    ASSERT_EQ(std::raise(signal), 0);
    EXPECT_EQ(received, 1) << "what was there before is back";
    const EndSignals again;
    EXPECT_FALSE(EndSignals::came());
  }
}

TEST(InterruptionTest, KeepsIgnoredSignalsIgnored) {
  const Handler handler(SIGHUP, SIG_IGN);
  const EndSignals signals;
  ASSERT_EQ(std::raise(SIGHUP), 0);
  EXPECT_FALSE(EndSignals::came());
}

TEST(InterruptionTest, ASignalEndsTheSubcommandsWork) {
  const ScratchDirectory scratch;
  const Handler handler(SIGTERM, count);
  EXPECT_THROW(runExport({.capture = scratch.file("a.zcap", script().bytes()),
                          .edf = scratch / "a.edf",
                          .csv = scratch / "csv",
                          .interrupted =
                              [] {
                                static_cast<void>(std::raise(SIGTERM));
                                return false;
                              }},
                         "export"),
               std::runtime_error);
  EXPECT_EQ(received, 0);
  EXPECT_TRUE(nothingWritten(scratch));
}

}  // namespace
}  // namespace Zephly::exporting

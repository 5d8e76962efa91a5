// SPDX-License-Identifier: MIT
// A loss of power after each call that changes files: what the disk may hold then is written and
// opened. See disk_model.h.

#include <tests/failures/content.h>
#include <tests/failures/disk_model.h>
#include <tests/support/process.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using failures::contentOf;
using failures::DiskModel;
using failures::Kept;
using failures::LogEntry;
using failures::Loss;

constexpr std::array losses = {Loss{Kept::none, Kept::none}, Loss{Kept::none, Kept::all},
                               Loss{Kept::half, Kept::none}, Loss{Kept::half, Kept::all},
                               Loss{Kept::all, Kept::none},  Loss{Kept::all, Kept::all}};

bool isWholeCapture(const fs::path& path) {
  return runProgram({"inspect", path.string()}).exitCode == 0;
}

// Everything up to the end of the file, which may be cut, can be read.
bool isReadableCapture(const fs::path& path) {
  return !runProgram({"inspect", path.string()}).output.empty();
}

class PowerLossTest : public testing::Test {
 protected:
  PowerLossTest()
      : root_(fs::path(testing::TempDir()) / ("power-loss-" + std::to_string(::getpid()))),
        folder_(root_ / "folder") {
    fs::create_directories(folder_);
  }
  ~PowerLossTest() override { fs::remove_all(root_); }

  // Runs the program; calls `check` for each state of the disk, also for those after its end.
  void run(const std::vector<std::string>& arguments,
           const std::function<void(const fs::path& disk, bool ended)>& check) {
    DiskModel disk(folder_);
    const fs::path log = root_ / "log";
    {
      Process process(arguments, Process::Output::pipe,
                      {"LD_PRELOAD=" ZEPHLY_LOGGED_CALLS, "LOG_FOLDER=" + folder_.string(),
                       "LOG_FILE=" + log.string()});
      const Finished finished = process.finish();
      ASSERT_EQ(finished.exitCode, 0) << finished.errors;
    }
    const std::vector<LogEntry> entries = failures::readLog(log);
    ASSERT_GT(entries.size(), 5U);
    for (std::size_t index = 0; index < entries.size(); ++index) {
      disk.apply(entries[index]);
      const bool last = index + 1 == entries.size();
      // Of the many writes one in fifty.
      if (entries[index].operation == "write" && index % 50 != 0 && !last) continue;
      for (const Loss loss : losses) {
        const fs::path state = root_ / "state";
        fs::remove_all(state);
        disk.write(state, loss);
        SCOPED_TRACE("after call " + std::to_string(index + 1) + " (" + entries[index].operation +
                     "), data " + std::to_string(static_cast<int>(loss.data)) + ", names " +
                     std::to_string(static_cast<int>(loss.names)));
        check(state, last);
        ++states_;
        if (HasFailure()) return;
      }
    }
    RecordProperty("states", states_);
  }

  fs::path root_;
  fs::path folder_;
  int states_ = 0;
};

TEST_F(PowerLossTest, OfRecordLeavesAReadableCapture) {
  run({"record", (folder_ / "walk.zcap").string(), "--simulated", "--duration", "4", "--speed",
       "4"},
      [](const fs::path& disk, bool ended) {
        const fs::path walk = disk / "walk.zcap";
        if (ended) {
          EXPECT_TRUE(isWholeCapture(walk));
        } else if (fs::exists(walk) && fs::file_size(walk) > 200) {
          EXPECT_TRUE(isReadableCapture(walk)) << fs::file_size(walk);
        }
      });
}

TEST_F(PowerLossTest, OfRecordWithForceLeavesTheOldCaptureOrTheNewOne) {
  const fs::path walk = folder_ / "walk.zcap";
  ASSERT_EQ(
      runProgram({"record", walk.string(), "--simulated", "--duration", "1", "--speed", "1000"})
          .exitCode,
      0);
  const std::string old = contentOf(walk);
  run({"record", walk.string(), "--simulated", "--duration", "4", "--speed", "4", "--force"},
      [&](const fs::path& disk, bool ended) {
        const fs::path now = disk / "walk.zcap";
        ASSERT_TRUE(fs::exists(now));
        const bool same = contentOf(now) == old;
        EXPECT_TRUE(same || isReadableCapture(now)) << fs::file_size(now);
        if (ended) {
          EXPECT_TRUE(!same && isWholeCapture(now));
        }
      });
}

TEST_F(PowerLossTest, OfExportLeavesOldFilesOrWholeNewOnes) {
  const fs::path capture = root_ / "in.zcap";
  ASSERT_EQ(
      runProgram({"record", capture.string(), "--simulated", "--duration", "2", "--speed", "1000"})
          .exitCode,
      0);
  const std::string edf = (root_ / "reference.edf").string();
  const std::string csv = (root_ / "reference").string();
  ASSERT_EQ(runProgram({"export", capture.string(), "--edf", edf, "--csv", csv}).exitCode, 0);
  std::ofstream(folder_ / "out.edf") << "precious\n";
  fs::copy(csv, folder_ / "out");
  // The old set is one line shorter.
  const std::string whole = contentOf(fs::path(csv) / "motion.csv");
  const std::string shorter = whole.substr(0, whole.rfind('\n', whole.size() - 2) + 1);
  std::ofstream(folder_ / "out/motion.csv") << shorter;
  run({"export", capture.string(), "--edf", (folder_ / "out.edf").string(), "--csv",
       (folder_ / "out").string(), "--force"},
      [&](const fs::path& disk, bool ended) {
        const std::string now = contentOf(disk / "out.edf");
        EXPECT_TRUE(now == "precious\n" || now == contentOf(edf)) << now.size();
        const std::string motion = contentOf(disk / "out/motion.csv");
        EXPECT_TRUE(motion == shorter || motion == whole) << motion.size();
        for (const char* name :
             {"ecg.csv", "respiration.csv", "temperature.csv", "battery.csv", "events.csv"}) {
          EXPECT_EQ(contentOf(disk / "out" / name), contentOf(fs::path(csv) / name)) << name;
        }
        if (ended) {
          EXPECT_TRUE(now == contentOf(edf) && motion == whole);
        }
      });
}

}  // namespace

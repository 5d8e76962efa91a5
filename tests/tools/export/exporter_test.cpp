// SPDX-License-Identifier: MIT
#include <tools/export/exporter.h>

#include <capture/capture_error.h>
#include <capture/writer.h>
#include <tests/support/captures.h>
#include <tests/tools/export/edf_reader.h>
#include <tests/tools/export/session_script.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Zephly::exporting::checkTargets;
using Zephly::exporting::Existing;
using Zephly::exporting::exportCapture;
using Zephly::exporting::Stage;
using namespace std::chrono_literals;
using captures::ScratchDirectory;
using exporting_test::EdfReader;
using exporting_test::Nanoseconds;
using exporting_test::SessionScript;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Outcome {
  std::vector<std::string> complaints;
  std::string failure;  ///< empty: files were written
};

Outcome exportBoth(const ScratchDirectory& scratch, const std::vector<std::uint8_t>& capture,
                   Existing existing = Existing::refused) {
  Outcome outcome;
  try {
    outcome.complaints = exportCapture({.capture = scratch.file("a.zcap", capture),
                                        .edf = scratch / "a.edf",
                                        .csv = scratch / "csv",
                                        .existing = existing});
  } catch (const std::runtime_error& error) {
    outcome.failure = error.what();
  }
  return outcome;
}

template <class Call>
std::string refusalOf(const Call& call) {
  try {
    call();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

// Names of all files, with those in directories.
std::vector<std::string> filesIn(const ScratchDirectory& scratch) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(scratch.path())) {
    if (!entry.is_directory()) {
      names.push_back(entry.path().lexically_relative(scratch.path()).string());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

SessionScript fewFrames() {
  SessionScript script;
  script.connect(1s);
  for (int frame = 1; frame <= 100; ++frame)
    script.ecg(1s + frame * 12ms, {1000, 2000, 3000, 4000, 5000, 6000});
  script.end(3s);
  return script;
}

TEST(ExporterTest, WritesAllFilesAndNoOthers) {
  const ScratchDirectory scratch;
  const Outcome outcome = exportBoth(scratch, fewFrames().bytes());
  EXPECT_EQ(outcome.failure, "");
  EXPECT_THAT(outcome.complaints, IsEmpty());
  EXPECT_THAT(filesIn(scratch),
              ElementsAre("a.edf", "a.zcap", "csv/battery.csv", "csv/beats.csv", "csv/breaths.csv",
                          "csv/ecg.csv", "csv/events.csv", "csv/motion.csv", "csv/respiration.csv",
                          "csv/temperature.csv", "csv/vitals.csv"));
}

TEST(ExporterTest, ASessionOfNoLengthIsOneEmptySecond) {
  SessionScript script;
  script.preamble.began = 1'772'357'400s;
  script.records.clear();
  script.end(0s);
  const ScratchDirectory scratch;
  const Outcome outcome = exportBoth(scratch, script.bytes());
  EXPECT_EQ(outcome.failure, "");
  EXPECT_THAT(outcome.complaints, IsEmpty());
  const EdfReader edf(scratch / "a.edf");
  EXPECT_EQ(edf.records, 1);
  ASSERT_EQ(edf.annotations.size(), 1U);
  EXPECT_EQ(edf.annotations[0].text, "BAD_not connected");
  EXPECT_THAT(captures::contentOf(scratch / "csv" / "ecg.csv"),
              testing::SizeIs(std::string("time_s,date_utc,gap_s,ecg_mV\n").size()));
}

TEST(ExporterTest, ASessionWithoutAConnectionIsOneGap) {
  SessionScript script;
  script.end(90s);
  const ScratchDirectory scratch;
  EXPECT_THAT(exportBoth(scratch, script.bytes()).complaints, IsEmpty());
  const EdfReader edf(scratch / "a.edf");
  EXPECT_EQ(edf.records, 91);
  ASSERT_EQ(edf.annotations.size(), 1U);
  EXPECT_EQ(edf.annotations[0].text, "BAD_not connected");
  EXPECT_EQ(edf.annotations[0].duration, 91);
}

TEST(ExporterTest, ExportsTheCompletePartOfATruncatedCapture) {
  const ScratchDirectory scratch;
  const SessionScript script = fewFrames();
  std::vector<std::uint8_t> bytes = script.bytes();
  SessionScript shorter = script;
  shorter.records.resize(script.records.size() - 2);  // without the last frame and the end
  const std::size_t offset = shorter.bytes().size();
  bytes.resize(offset + 10);
  const Outcome outcome = exportBoth(scratch, bytes);
  EXPECT_EQ(outcome.failure, "");
  ASSERT_EQ(outcome.complaints.size(), 1U);
  EXPECT_THAT(outcome.complaints[0],
              HasSubstr((scratch / "a.zcap").string() + ": at byte " + std::to_string(offset)));
  const EdfReader edf(scratch / "a.edf");
  const auto& ecg = edf.signal("ECG chest").digital;
  EXPECT_EQ(std::count_if(ecg.begin(), ecg.end(), [](int one) { return one != 0; }), 594);
}

TEST(ExporterTest, ExportsACaptureWithoutItsEndAndReportsIt) {
  const ScratchDirectory scratch;
  SessionScript script = fewFrames();
  script.records.pop_back();
  const Outcome outcome = exportBoth(scratch, script.bytes());
  EXPECT_EQ(outcome.failure, "");
  ASSERT_EQ(outcome.complaints.size(), 1U);
  EXPECT_THAT(outcome.complaints[0], HasSubstr("the capture stops here without its end"));
  EXPECT_TRUE(std::filesystem::exists(scratch / "a.edf"));
}

TEST(ExporterTest, TimeThatRunsBackwardsEndsTheExport) {
  const ScratchDirectory scratch;
  SessionScript script = fewFrames();
  script.records[50].stamp.monotonic = 0s;
  const Outcome outcome = exportBoth(scratch, script.bytes());
  ASSERT_EQ(outcome.complaints.size(), 1U);
  EXPECT_THAT(outcome.complaints[0], HasSubstr("time runs backwards"));
  EXPECT_TRUE(std::filesystem::exists(scratch / "a.edf"));
}

TEST(ExporterTest, AnImplausibleTimeEndsTheExport) {
  const ScratchDirectory scratch;
  SessionScript script = fewFrames();
  script.records.back().stamp.monotonic = Nanoseconds::max();
  const Outcome outcome = exportBoth(scratch, script.bytes());
  ASSERT_EQ(outcome.complaints.size(), 1U);
  EXPECT_THAT(outcome.complaints[0], HasSubstr("a time beyond the longest session"));
}

TEST(ExporterTest, AContradictionEndsTheExport) {
  const ScratchDirectory scratch;
  SessionScript script = fewFrames();
  std::get<Zephly::capture::Value>(script.records[50].what).characteristic = 99;
  const Outcome outcome = exportBoth(scratch, script.bytes());
  ASSERT_EQ(outcome.complaints.size(), 1U);
  EXPECT_THAT(outcome.complaints[0], HasSubstr("99"));
  EXPECT_TRUE(std::filesystem::exists(scratch / "a.edf"));
}

TEST(ExporterTest, RefusesAnInvalidDate) {
  for (const Nanoseconds began : {Nanoseconds::min(), Nanoseconds::max(), Nanoseconds(-1)}) {
    const ScratchDirectory scratch;
    SessionScript script;
    script.preamble.began = began;
    for (auto& record : script.records) record.stamp.wall = {};
    script.records.push_back({{1s, 0s, 0}, Zephly::capture::Ended{}});
    const Outcome outcome = exportBoth(scratch, script.bytes());
    EXPECT_EQ(outcome.failure, (scratch / "a.zcap").string() + ": the date in its head is none");
    EXPECT_THAT(filesIn(scratch), ElementsAre("a.zcap"));
  }
}

TEST(ExporterTest, DecodesFramesOfUnusualSizesLikeTheKit) {
  const ScratchDirectory scratch;
  SessionScript script;
  script.connect(1s);
  Nanoseconds time = 1s;
  std::mt19937 random(5);
  for (std::size_t characteristic = 0; characteristic < 5; ++characteristic) {
    for (std::size_t size = 0; size < 40; ++size) {
      std::vector<std::uint8_t> bytes(size);
      for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
      script.value(time += 12ms, characteristic, bytes);
    }
    // No value, and an error.
    script.value(time, characteristic, {});
    std::get<Zephly::capture::Value>(script.records.back().what).bytes.reset();
    script.value(time, characteristic, {1, 2, 3});
    std::get<Zephly::capture::Value>(script.records.back().what).error = "broken";
  }
  script.end(time + 1s);
  const Outcome outcome = exportBoth(scratch, script.bytes());
  EXPECT_EQ(outcome.failure, "");
  EXPECT_THAT(outcome.complaints, IsEmpty());
  EXPECT_NO_THROW(EdfReader(scratch / "a.edf"));
  const auto ecg = captures::contentOf(scratch / "csv" / "ecg.csv");
  EXPECT_EQ(std::count(ecg.begin(), ecg.end(), '\n'), 241);
}

TEST(ExporterTest, ReplacesExistingFilesOnlyOnRequest) {
  const ScratchDirectory scratch;
  const auto bytes = fewFrames().bytes();
  ASSERT_EQ(exportBoth(scratch, bytes).failure, "");
  EXPECT_THAT(exportBoth(scratch, bytes).failure, HasSubstr("a.edf: it exists already"));
  std::filesystem::remove(scratch / "a.edf");
  EXPECT_THAT(exportBoth(scratch, bytes).failure, HasSubstr("csv: it exists already"));
  EXPECT_FALSE(std::filesystem::exists(scratch / "a.edf"));
  EXPECT_EQ(exportBoth(scratch, bytes, Existing::replaced).failure, "");
}

// The outputs, relative to a directory with the capture d/ecg.csv, its links and an empty directory
// c. `expected`: part of the refusal.
struct Pair {
  std::string edf;  ///< empty: none
  std::string csv;
  std::string expected;
};

TEST(ExporterTest, OutputsNeverReplaceTheCaptureOrEachOther) {
  const auto bytes = fewFrames().bytes();
  for (const Pair& pair : {
           Pair{"d/ecg.csv", "", "it is the input"},
           Pair{"./d/../d/ecg.csv", "", "it is the input"},
           Pair{"symbolic", "", "it is the input"},
           Pair{"hard", "", "it is the input"},
           Pair{"", "d", "the capture is to be there"},
           Pair{"", "d/", "the capture is to be there"},
           Pair{"", "e", "it is the input"},  // e/ecg.csv is a hard link
           Pair{"", "d/ecg.csv", "the capture is to be there"},
           Pair{"", ".", "the capture is to be there"},
           Pair{"c/ecg.csv", "c", "the EDF+ file is to be there"},
           Pair{"c/a.edf", "c/", "the EDF+ file is to be there"},
           Pair{"x", "x", "the EDF+ file is to be there"},
           Pair{"x", "./c/../x", "the EDF+ file is to be there"},
       }) {
    const ScratchDirectory scratch;
    for (const char* name : {"c", "d", "e"}) std::filesystem::create_directory(scratch / name);
    const auto capture = scratch.file("d/ecg.csv", bytes);
    std::filesystem::create_symlink("d/ecg.csv", scratch / "symbolic");
    std::filesystem::create_hard_link(capture, scratch / "hard");
    std::filesystem::create_hard_link(capture, scratch / "e" / "ecg.csv");
    const auto before = filesIn(scratch);
    Zephly::exporting::ExportOptions options{.capture = capture, .existing = Existing::replaced};
    const std::string root = scratch.path().string() + "/";
    if (!pair.edf.empty()) options.edf = root + pair.edf;
    if (!pair.csv.empty()) options.csv = root + pair.csv;
    EXPECT_THAT(refusalOf([&] { exportCapture(options); }), HasSubstr(pair.expected))
        << pair.edf << ' ' << pair.csv;
    EXPECT_EQ(captures::contentOf(capture), bytes);
    EXPECT_EQ(filesIn(scratch), before);
  }
}

// Before the capture exists: `zephly record` checks its outputs first.
TEST(ExporterTest, ChecksTargetsOfACaptureThatDoesNotExistYet) {
  const ScratchDirectory scratch;
  std::filesystem::create_directory(scratch / "d");
  EXPECT_THAT(refusalOf([&] {
                checkTargets({.capture = scratch / "d" / "ecg.csv", .csv = scratch / "d"});
              }),
              HasSubstr("the capture is to be there"));
  EXPECT_THAT(
      refusalOf([&] { checkTargets({.capture = scratch / "a", .edf = scratch / "d/../a"}); }),
      HasSubstr("it is the input"));
  EXPECT_EQ(
      refusalOf([&] {
        checkTargets({.capture = scratch / "a", .edf = scratch / "a.edf", .csv = scratch / "csv"});
      }),
      "");
  EXPECT_THAT(filesIn(scratch), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(scratch / "csv"));
}

TEST(ExporterTest, NeverReplacesARunningRecording) {
  const ScratchDirectory scratch;
  const auto capture = scratch.file("a.zcap", fewFrames().bytes());
  std::filesystem::create_directory(scratch / "csv");
  for (const auto& recorded : {scratch / "run.zcap", scratch / "csv" / "motion.csv"}) {
    Zephly::capture::Writer writer(recorded, captures::somePreamble());
    Zephly::exporting::ExportOptions options{.capture = capture, .existing = Existing::replaced};
    if (recorded.extension() == ".csv") {
      options.csv = scratch / "csv";
    } else {
      options.edf = recorded;
    }
    const auto before = captures::contentOf(recorded);
    EXPECT_EQ(refusalOf([&] { exportCapture(options); }),
              "cannot write " + recorded.string() + ": another program is writing it");
    EXPECT_EQ(captures::contentOf(recorded), before);
  }
}

TEST(ExporterTest, ReportsItsProgress) {
  const ScratchDirectory scratch;
  std::vector<std::pair<Stage, double>> reports;
  exportCapture({.capture = scratch.file("a.zcap", fewFrames().bytes()),
                 .edf = scratch / "a.edf",
                 .progress = [&](Stage stage, double part) { reports.emplace_back(stage, part); }});
  ASSERT_EQ(reports.size(), 2 * fewFrames().records.size());
  EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end()));
  for (const Stage stage : {Stage::reading, Stage::writing}) {
    EXPECT_EQ(std::count(reports.begin(), reports.end(), std::pair(stage, 1.0)), 1);
  }
  EXPECT_LT(reports.front().second, 0.1);
}

TEST(ExporterTest, ReportsWhatWasWritten) {
  const ScratchDirectory scratch;
  std::vector<Zephly::exporting::WrittenFile> files;
  exportCapture(
      {.capture = scratch.file("a.zcap", fewFrames().bytes()),
       .edf = scratch / "a.edf",
       .csv = scratch / "csv",
       .written = [&](const Zephly::exporting::WrittenFile& file) { files.push_back(file); }});
  ASSERT_EQ(files.size(), 10U);
  for (const auto& file : files) EXPECT_EQ(file.bytes, std::filesystem::file_size(file.path));
  EXPECT_EQ(files[0].path, scratch / "a.edf");
  EXPECT_FALSE(files[0].rows);
  EXPECT_EQ(files[0].span->to, 3s);
  EXPECT_EQ(files[1].path, scratch / "csv" / "ecg.csv");
  EXPECT_EQ(files[1].rows, 600U);
  EXPECT_EQ(files[1].span->from, 1s + 2ms);
  EXPECT_EQ(files[1].span->to, 2s + 200ms);
  EXPECT_EQ(files[2].rows, 0U);
  EXPECT_FALSE(files[2].span);
  EXPECT_EQ(files[6].path, scratch / "csv" / "events.csv");
  EXPECT_EQ(files[7].path, scratch / "csv" / "beats.csv");
  EXPECT_EQ(files[8].path, scratch / "csv" / "breaths.csv");
  EXPECT_EQ(files[9].path, scratch / "csv" / "vitals.csv");
}

TEST(ExporterTest, RefusesAFileThatIsNotACapture) {
  const ScratchDirectory scratch;
  EXPECT_THAT(exportBoth(scratch, {'n', 'o'}).failure, HasSubstr("a.zcap"));
  EXPECT_THAT(filesIn(scratch), ElementsAre("a.zcap"));
}

// Corrupted bytes give an export or one line, never an incomplete file.
TEST(ExporterTest, ExportsOrRefusesDamagedCaptures) {
  const std::vector<std::uint8_t> bytes = fewFrames().bytes();
  std::mt19937 random(11);
  for (int round = 0; round < 60; ++round) {
    const ScratchDirectory scratch;
    std::vector<std::uint8_t> damaged = bytes;
    damaged[random() % damaged.size()] ^= static_cast<std::uint8_t>(1 + random() % 255);
    if (round % 3 == 0) damaged.resize(random() % damaged.size());
    const Outcome outcome = exportBoth(scratch, damaged);
    if (outcome.failure.empty()) {
      EXPECT_FALSE(outcome.complaints.empty());
      EXPECT_NO_THROW(EdfReader(scratch / "a.edf"));
    } else {
      EXPECT_THAT(filesIn(scratch), ElementsAre("a.zcap"));
    }
  }
}

}  // namespace

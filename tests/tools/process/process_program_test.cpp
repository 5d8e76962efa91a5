// SPDX-License-Identifier: MIT
// `zephly process` as a process: what it writes.

#include <tests/support/captures.h>
#include <tests/support/process.h>
#include <tests/tools/export/session_script.h>
#include <tests/tools/process/process_fixture.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using namespace std::chrono_literals;
using nlohmann::json;
using process_test::bytesOf;
using process_test::namesBelow;
using process_test::process;
using process_test::textOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class ProcessProgramTest : public process_test::Fixture {};

TEST_F(ProcessProgramTest, WritesWhatExportWrites) {
  const Finished run =
      process({capture("walk"), "--out", out_, "--csv", "--edf"}, {"TZ=Asia/Kolkata"});
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_EQ(run.errors, "");
  const fs::path csv = scratch_ / "csv";
  const fs::path edf = scratch_ / "walk.edf";
  ASSERT_EQ(runProgram({"export", capture("walk"), "--csv", csv, "--edf", edf, "--utc"}).exitCode,
            0);
  for (const std::string& name : namesBelow(csv)) {
    EXPECT_EQ(bytesOf(result("walk") / name), bytesOf(csv / name)) << name;
  }
  EXPECT_EQ(bytesOf(result("walk") / "signals.edf"), bytesOf(edf));
}

TEST_F(ProcessProgramTest, WritesTheEventsInEveryForm) {
  ASSERT_EQ(process({capture("walk"), "--out", out_}).exitCode, 0);
  EXPECT_THAT(namesBelow(result("walk")),
              ElementsAre("events.csv", "manifest.json", "signals.h5", "summary.json"));
  ASSERT_EQ(process({capture("rest"), "--out", scratch_ / "edf", "--edf"}).exitCode, 0);
  EXPECT_THAT(namesBelow(scratch_ / "edf/rest"),
              ElementsAre("events.csv", "manifest.json", "signals.edf", "summary.json"));
  const fs::path csv = scratch_ / "csv";
  ASSERT_EQ(runProgram({"export", capture("walk"), "--csv", csv}).exitCode, 0);
  EXPECT_EQ(bytesOf(result("walk") / "events.csv"), bytesOf(csv / "events.csv"));
}

TEST_F(ProcessProgramTest, SummarizesTheCapture) {
  ASSERT_EQ(process({capture("walk"), "--out", out_}).exitCode, 0);
  const json summary = json::parse(textOf(result("walk") / "summary.json"));
  const json inspected = json::parse(runProgram({"vitals", capture("walk"), "--json"}).output);
  EXPECT_EQ(summary["vitals"]["beats"], inspected["beats"]);
  EXPECT_EQ(summary["vitals"]["hrv"], inspected["hrv"]);
  EXPECT_EQ(summary["vitals"]["file"], "walk.zcap");
  EXPECT_EQ(summary["duration"], 40);
  EXPECT_EQ(summary["links"], json({{"connected", 2}, {"lost", 1}, {"lostSeconds", 1.52}}));
  EXPECT_EQ(summary["streams"]["ecg"]["nominalRate"], 500);
  EXPECT_GT(summary["streams"]["ecg"]["samples"], 18'000);
  EXPECT_EQ(summary["streams"]["ecg"]["driftPpm"], nullptr) << "40 s are not enough";
  EXPECT_EQ(summary["repetitions"].size(), 3U);
  EXPECT_GT(summary["repetitions"]["pushUps"], 0);
  EXPECT_EQ(summary["damage"], json::array());
}

TEST_F(ProcessProgramTest, EstimatesTheDriftOfTheClock) {
  // A strap that is 100 ppm fast: its frames of 12 ms come 1.2 us early each.
  exporting_test::SessionScript script;
  script.connect(1s);
  for (int frame = 1; frame <= 6000; ++frame) {
    script.ecg(1s + frame * 11'998'800ns, {1, 2, 3, 4, 5, 6});
  }
  script.end(80s);
  const fs::path file = scratch_.file("fast.zcap", script.bytes());
  ASSERT_EQ(process({file, "--out", out_}).exitCode, 0);
  const json ecg = json::parse(textOf(result("fast") / "summary.json"))["streams"]["ecg"];
  EXPECT_NEAR(ecg["driftPpm"].get<double>(), 100, 0.1);
  EXPECT_NEAR(ecg["rate"].get<double>(), 500.05, 0.0001);
  EXPECT_NEAR(ecg["driftErrorPpm"].get<double>(), 2 * 10e-3 / 72 * 1e6, 1);
}

TEST_F(ProcessProgramTest, TheManifestNamesInputAndOutputs) {
  ASSERT_EQ(process({capture("walk"), "--out", out_}).exitCode, 0);
  const json manifest = json::parse(textOf(result("walk") / "manifest.json"));
  EXPECT_THAT(manifest["program"].get<std::string>(), StartsWith("zephly "));
  ASSERT_EQ(manifest["input"].size(), 1U);
  const json& input = manifest["input"][0];
  EXPECT_EQ(input["name"], "walk.zcap");
  EXPECT_EQ(input["bytes"], fs::file_size(capture("walk")));
  EXPECT_EQ(runOther("/usr/bin/sha256sum", {capture("walk")}).output.substr(0, 64),
            input["sha256"]);
  ASSERT_EQ(manifest["outputs"].size(), 3U);
  for (const json& output : manifest["outputs"]) {
    const fs::path file = result("walk") / output["name"].get<std::string>();
    EXPECT_EQ(output["bytes"], fs::file_size(file));
    EXPECT_EQ(runOther("/usr/bin/sha256sum", {file}).output.substr(0, 64), output["sha256"]);
  }
}

// Neither the folder, nor the time, nor the time zone, nor who does what.
TEST_F(ProcessProgramTest, TheSameCaptureGivesTheSameBytes) {
  const fs::path other = scratch_ / "elsewhere";
  fs::create_directory(other);
  fs::copy_file(capture("walk"), other / "walk.zcap");
  fs::copy_file(capture("rest"), other / "rest.zcap");
  ASSERT_EQ(process({capture("walk"), capture("rest"), "--out", out_, "--csv", "--edf", "--hdf5",
                     "--jobs", "1"})
                .exitCode,
            0);
  ASSERT_EQ(process({other / "rest.zcap", other / "walk.zcap", "--out", other / "out", "--csv",
                     "--edf", "--hdf5", "--jobs", "2"},
                    {"TZ=Asia/Kolkata"})
                .exitCode,
            0);
  EXPECT_EQ(process_test::contentsBelow(out_), process_test::contentsBelow(other / "out"));
}

TEST_F(ProcessProgramTest, ADamagedCaptureIsProcessedUpToTheDamage) {
  const fs::path cut = scratch_ / "cut.zcap";
  fs::copy_file(capture("walk"), cut);
  fs::resize_file(cut, 300'000);
  const fs::path junk = scratch_.file("junk.zcap", {1, 2, 3});
  const Finished run = process({cut, junk, capture("rest"), "--out", out_});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errors, HasSubstr("zephly process: " + cut.string() + ": at byte 299"));
  EXPECT_THAT(run.errors, HasSubstr("zephly process: " + junk.string() + ": at byte 0: not a"));
  EXPECT_THAT(run.output, HasSubstr("3 captures: 1 done, 0 already done, 1 damaged, 1 failed\n"));
  const json damage = json::parse(textOf(result("cut") / "summary.json"))["damage"];
  ASSERT_EQ(damage.size(), 1U);
  EXPECT_EQ(damage[0]["file"], "cut.zcap");
  EXPECT_GT(damage[0]["offset"], 299'000);
  EXPECT_THAT(damage[0]["reason"].get<std::string>(), StartsWith("cut off in the middle"));
  EXPECT_THAT(namesBelow(out_), ElementsAre("cohort.csv", "cut", "rest"));

  // The damage stays one when its result is there already.
  const Finished again = process({cut, "--out", out_});
  EXPECT_EQ(again.exitCode, 1);
  EXPECT_THAT(run.errors, HasSubstr(again.errors));
  EXPECT_THAT(again.errors, HasSubstr("at byte 299"));
}

TEST_F(ProcessProgramTest, AContinuedRecordingIsOneResult) {
  exporting_test::SessionScript first;
  first.connect(1s);
  for (int frame = 1; frame <= 100; ++frame) first.ecg(1s + frame * 12ms, {1, 2, 3, 4, 5, 6});
  exporting_test::SessionScript second;
  second.preamble.continues = {.part = 2, .lost = 0};
  second.records.clear();
  second.end(3s);
  const fs::path one = scratch_.file("long.zcap", first.bytes());
  const fs::path two = scratch_.file("long.2.zcap", second.bytes());
  const Finished run = process({one, two, "--out", out_});
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(namesBelow(out_), ElementsAre("cohort.csv", "long"));
  const json manifest = json::parse(textOf(result("long") / "manifest.json"));
  ASSERT_EQ(manifest["input"].size(), 2U);
  EXPECT_EQ(manifest["input"][1]["name"], "long.2.zcap");

  const Finished alone = process({two, "--out", scratch_ / "alone"});
  EXPECT_EQ(alone.exitCode, 1);
  EXPECT_THAT(alone.errors, HasSubstr("is read from its first file on"));
}

TEST_F(ProcessProgramTest, TheCohortHasARowForEachResult) {
  fs::create_directories(out_ / "other");
  std::ofstream(out_ / "other/manifest.json") << "{}\n";
  const Finished run = process({capture("walk"), capture("rest"), "--out", out_, "--no-cohort"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_FALSE(fs::exists(out_ / "cohort.csv"));
  const Finished cohort = process({"--out", out_});
  EXPECT_EQ(cohort.exitCode, 0);
  EXPECT_THAT(cohort.output, HasSubstr("cohort.csv: 2 rows\n"));
  const std::vector<std::string> lines = linesOf(textOf(out_ / "cohort.csv"));
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_THAT(lines[0], StartsWith("name,program,input_bytes,input_sha256,damage,began_utc,"));
  EXPECT_THAT(lines[1], StartsWith("rest,zephly "));
  EXPECT_THAT(lines[2], StartsWith("walk,zephly "));
  for (const std::string& line : lines) {
    EXPECT_EQ(std::count(line.begin(), line.end(), ','),
              std::count(lines[0].begin(), lines[0].end(), ','));
  }

  // A result that is not complete is none.
  fs::remove(result("rest") / "events.csv");
  ASSERT_EQ(process({"--out", out_}).exitCode, 0);
  EXPECT_EQ(linesOf(textOf(out_ / "cohort.csv")).size(), 2U);
}

TEST_F(ProcessProgramTest, RefusesWrongArguments) {
  const fs::path other = scratch_ / "other";
  fs::create_directory(other);
  fs::copy_file(capture("walk"), other / "walk.zcap");
  const Finished twice = process({capture("walk"), other / "walk.zcap", "--out", out_});
  EXPECT_EQ(twice.exitCode, 2);
  EXPECT_THAT(twice.errors, HasSubstr("have the same name"));
  EXPECT_EQ(twice.errorLines().size(), 1U);
  for (const char* jobs : {"0", "-1", "two", "5000"}) {
    EXPECT_EQ(process({capture("walk"), "--out", out_, "--jobs", jobs}).exitCode, 2) << jobs;
  }
  EXPECT_EQ(process({capture("walk")}).exitCode, 2);
  EXPECT_EQ(process({"--no-cohort", "--out", out_}).exitCode, 2);
  EXPECT_FALSE(fs::exists(out_));
}

TEST_F(ProcessProgramTest, ReplacesNothingElse) {
  fs::create_directories(result("walk"));
  std::ofstream(result("walk") / "notes.txt") << "precious\n";
  std::ofstream(out_ / "cohort.csv") << "precious\n";
  const Finished run = process({capture("walk"), "--out", out_, "--no-cohort"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errors, HasSubstr("it holds other files, such as notes.txt"));
  const Finished cohort = process({"--out", out_});
  EXPECT_EQ(cohort.exitCode, 1);
  EXPECT_THAT(cohort.errors, HasSubstr("another file has this name"));
  EXPECT_EQ(textOf(result("walk") / "notes.txt"), "precious\n");
  EXPECT_EQ(textOf(out_ / "cohort.csv"), "precious\n");
}

TEST_F(ProcessProgramTest, NeverReplacesItsInput) {
  // Captures whose place is that of an output.
  const fs::path asOutput = result("events.csv") / "events.csv";
  fs::create_directories(asOutput.parent_path());
  fs::copy_file(capture("walk"), asOutput);
  fs::copy_file(capture("walk"), out_ / "cohort.csv");
  const auto before = bytesOf(capture("walk"));
  EXPECT_EQ(process({asOutput, "--out", out_, "--no-cohort"}).exitCode, 1);
  EXPECT_NE(process({out_ / "cohort.csv", "--out", out_}).exitCode, 0);
  EXPECT_EQ(bytesOf(asOutput), before);
  EXPECT_EQ(bytesOf(out_ / "cohort.csv"), before);
}

}  // namespace

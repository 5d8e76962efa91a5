// SPDX-License-Identifier: MIT
// The example programs, run as described in their first lines.

#include <capture/record.h>
#include <hosts/foundation/data.h>
#include <hosts/main_queue/main_queue.h>
#include <simulator/strap.h>
#include <tests/support/captures.h>
#include <tests/support/fake_bluez/fake_bluez.h>
#include <tests/support/fake_bluez/private_bus.h>
#include <tests/support/fake_processor_clock.h>
#include <tests/support/process.h>
#include <tests/support/turn_until.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/dsp/signal_processor.h>
#include <zephly/protocol/frame_decoders.h>
#include <zephly/protocol/streams.h>
#include <zephly/session/signal_processor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// Runs the example in a shell, with both outputs combined. `rest` is shell text.
std::vector<std::string> example(const std::string& name, const std::string& rest = {}) {
  return {"sh", "-c", "exec \"$0\" " + rest + " 2>&1", std::string(ZEPHLY_EXAMPLES) + "/" + name};
}

// A temporary file of the test.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& content)
      : path_(std::filesystem::temp_directory_path() /
              ("zephly-example-" + std::to_string(::getpid()))) {
    std::ofstream(path_, std::ios::binary) << content;
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() { std::filesystem::remove(path_); }

  std::string asInput() const { return "< '" + path_.string() + "'"; }

 private:
  std::filesystem::path path_;
};

Finished runOn(const std::string& name, const std::string& input) {
  const TemporaryFile file(input);
  return Process(example(name, file.asInput())).finish();
}

std::string hex(const std::vector<std::uint8_t>& bytes) {
  std::ostringstream text;
  for (const std::uint8_t byte : bytes) {
    text << std::hex << std::setw(2) << std::setfill('0') << static_cast<int>(byte);
  }
  return text.str();
}

TEST(FilterCsvExampleTest, GivesTheBitsOfTheEngine) {
  std::mt19937 random(7);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same numbers each time
  std::uniform_real_distribution<float> value(-2.42F, 2.42F);
  const auto processor = SignalProcessor::init();
  std::ostringstream input;
  input.precision(9);
  // As `zephly export` writes it: with times, dates, and a gap before some samples.
  input << "time_s,date_utc,gap_s,ecg_mV\n";
  std::vector<float> expected;
  for (int i = 0; i < 2000; ++i) {
    const float sample = value(random);
    input << i * 0.002 << ",2026-11-21T19:18:01.000000000Z," << (i == 1000 ? "1.548" : "") << ','
          << sample << '\n';
    expected.push_back(processor->processECG(sample));
  }
  const Finished run = runOn("filter_csv", input.str());
  EXPECT_EQ(run.exitCode, 0);
  const std::vector<std::string> lines = run.outputLines();
  ASSERT_EQ(lines.size(), expected.size() + 1);
  EXPECT_EQ(lines.front(), "time_s,date_utc,gap_s,ecg_mV,filtered");
  EXPECT_THAT(lines[1001], StartsWith("2,2026-11-21T19:18:01.000000000Z,1.548,"));
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const std::string& line = lines[i + 1];
    EXPECT_EQ(std::stof(line.substr(line.rfind(',') + 1)), expected[i]) << "sample " << i;
  }
}

TEST(FilterCsvExampleTest, TakesAnotherColumnByItsName) {
  const TemporaryFile file("\xEF\xBB\xBF\"comment\", \"ECG (mV)\"\r\nfirst,0.5\r\n\n");
  const Finished run = Process({"sh", "-c", "exec \"$0\" --column 'ECG (mV)' " + file.asInput(),
                                std::string(ZEPHLY_EXAMPLES) + "/filter_csv"})
                           .finish();
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.outputLines(), ElementsAre(EndsWith(",filtered"), StartsWith("first,0.5,")));
}

TEST(FilterCsvExampleTest, RefusesAFileWithoutTheColumn) {
  const auto refused = [](const std::string& input, const std::string& reason) {
    const Finished run = runOn("filter_csv", input);
    EXPECT_EQ(run.exitCode, 1) << input;
    EXPECT_THAT(run.outputLines(), ElementsAre("filter_csv: " + reason)) << input;
  };
  refused(
      "0.5\n0.25\n",
      "line 1 has no column names; add a first line that names them (ecg_mV, or --column NAME)");
  refused("time_s,raw\n0,1\n",
          "there is no column ecg_mV in: time_s,raw; choose one with --column NAME");
  refused("", "standard input is empty; give it a CSV file: < ecg.csv");
}

TEST(FilterCsvExampleTest, ReportsTheLineThatIsNotANumber) {
  for (const std::string line : {"1,0.25 volts", "1,", "1", ""}) {
    const Finished run = runOn("filter_csv", "time_s,ecg_mV\n0,0.5\n" + line + "\n2,0.5\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.outputLines(),
                Contains("filter_csv: line 3: expected a number in the column ecg_mV"));
  }
}

TEST(FilterCsvExampleTest, ReportsWrongOptions) {
  const Finished run = Process(example("filter_csv", "ecg.csv")).finish();
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_THAT(run.outputLines(), ElementsAre("usage: filter_csv [--column NAME] < FILE.csv"));
}

TEST(FilterCsvExampleTest, ReportsThatItCannotWrite) {
  const TemporaryFile file("ecg_mV\n0.5\n");
  const Finished run = Process({"sh", "-c", "exec \"$0\" " + file.asInput() + " > /dev/full",
                                std::string(ZEPHLY_EXAMPLES) + "/filter_csv"})
                           .finish();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errors, HasSubstr("cannot write"));
}

TEST(AsioLoopExampleTest, RunsATimerBesideTheSessionAndEndsOnASignal) {
  Process process(example("asio_loop", "100"));
  ASSERT_TRUE(process.readUntil("connected\n"));
  // The example's timer expires after samples have arrived on the same loop.
  ASSERT_TRUE(process.readUntil(" ECG samples\n"));
  ASSERT_TRUE(process.readUntil("gone, reconnecting\n"));
  process.sendSignal(SIGINT);
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.outputLines(), Not(Contains("0 ECG samples")));
}

TEST(AsioLoopExampleTest, RefusesAnImpossibleSpeed) {
  for (const std::string speed : {"0", "-1", "fast"}) {
    const Finished run = Process(example("asio_loop", speed)).finish();
    EXPECT_EQ(run.exitCode, 2) << speed;
    EXPECT_THAT(run.output, HasSubstr("the speed must be a number greater than 0")) << speed;
  }
}

TEST(WorkoutExampleTest, CountsEachRepetitionOfThePlan) {
  // The speed is low because the example ends at a wall-clock time, also on a slow machine.
  const Finished run = Process(example("workout", "5")).finish();
  EXPECT_EQ(run.exitCode, 0);
  const Zephly::Repetitions done = Zephly::simulator::Strap().repetitionsDone(32s);
  ASSERT_GT(done.pushUps, 0);
  const auto last = [](const std::string& kind, int count) {
    return kind + " " + std::to_string(count);
  };
  const std::vector<std::string> lines = run.outputLines();
  EXPECT_THAT(lines, Contains(last("push-up", done.pushUps)).Times(1));
  EXPECT_THAT(lines, Contains(last("sit-up", done.sitUps)).Times(1));
  EXPECT_THAT(lines, Contains(last("jump", done.jumps)).Times(1));
  EXPECT_THAT(lines, Not(Contains(last("push-up", done.pushUps + 1))));
}

TEST(WorkoutExampleTest, RefusesAnImpossibleSpeed) {
  EXPECT_EQ(Process(example("workout", "0")).finish().exitCode, 2);
}

TEST(VitalsExampleTest, ShowsRatesThatVanishWithTheElectrodes) {
  Process process(example("vitals", "10"));
  // The wearer of the standard plan takes the electrodes off within half a minute.
  EXPECT_TRUE(process.readUntil(std::regex("heart [0-9]+ /min  breathing [0-9]+ /min")));
  EXPECT_TRUE(process.readUntil("heart -- /min  breathing -- /min  no contact\n"));
  process.sendSignal(SIGKILL);
  process.finish();
}

TEST(VitalsExampleTest, RefusesAnImpossibleSpeed) {
  EXPECT_EQ(Process(example("vitals", "0")).finish().exitCode, 2);
}

TEST(FrameFileExampleTest, PlaysTheFramesOfAStrap) {
  Zephly::simulator::Strap strap;
  std::ostringstream input;
  input << "advertising, 30 frames so far\n";
  int samples = 0;
  for (int i = 0; i < 400; ++i) {
    const Zephly::simulator::Frame frame = strap.nextFrame();
    if (frame.stream == Zephly::Stream::ecg) samples += 6;
    input << (i % 2 == 0 ? "12.5 sent " : "sent ") << Zephly::streamInfo(frame.stream).name << ' '
          << hex(frame.bytes) << '\n';
  }
  ASSERT_GT(samples, 0);
  const Finished run = runOn("frame_file_session", input.str());
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.outputLines(), Contains("connected").Times(1));
  EXPECT_THAT(run.outputLines(), Contains("electrodes on skin"));
  EXPECT_THAT(run.output, HasSubstr(std::to_string(samples) + " ECG samples"));
}

TEST(FrameFileExampleTest, ReportsTheLineWithInvalidBytes) {
  const Finished run =
      runOn("frame_file_session", "1 sent battery 840300\n1 sent battery 8403x0\n");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.outputLines(), Contains("battery 90 %"));
  EXPECT_THAT(run.outputLines(),
              Contains("frame_file_session: line 2: expected bytes in hexadecimal"));
}

// A connection and two ECG frames, the first with the samples 1 to 6 of the strap's smallest unit.
std::vector<Zephly::capture::Record> captureWithEcg() {
  using namespace Zephly::capture;
  std::vector<std::uint8_t> rising;
  for (std::uint8_t sample = 1; sample <= 6; ++sample) {
    rising.insert(rising.end(), {sample, 0, 0});
  }
  const Stamp end{.monotonic = 65s};
  return {
      {{}, Connected{1}},
      {{},
       CharacteristicsDiscovered{
           .peripheral = 1,
           .service = 2,
           .characteristics = {{3, ecgCharacteristicUUID().UUIDString(), "ECG"}}}},
      {{}, Value{.peripheral = 1, .characteristic = 3, .bytes = rising}},
      {{}, Value{.peripheral = 1, .characteristic = 3, .error = "No."}},
      {end, Value{.peripheral = 1, .characteristic = 3, .bytes = std::vector<std::uint8_t>(18)}},
      {end, Ended{}}};
}

Finished readCapture(const captures::Bytes& bytes) {
  const captures::ScratchDirectory scratch;
  const auto file = scratch.file("walk.zcap", bytes);
  return Process(example("read_capture", "'" + file.string() + "'")).finish();
}

TEST(ReadCaptureExampleTest, CountsNotificationsAndDecodesTheEcg) {
  const Finished run = readCapture(captures::captureOf(captureWithEcg()));
  EXPECT_EQ(run.exitCode, 0) << run.output;
  EXPECT_THAT(run.outputLines(), Contains("1:05, connected 1 time(s)"));
  EXPECT_THAT(run.outputLines(),
              Contains(ecgCharacteristicUUID().UUIDString() + ": 2 notifications"));
  EXPECT_THAT(run.output, HasSubstr("12 ECG samples from 0 to 1.7"));
  EXPECT_THAT(run.output, Not(HasSubstr("read_capture:")));
}

TEST(ReadCaptureExampleTest, ReportsDamageAndReadsTheRest) {
  const std::vector<Zephly::capture::Record> records = captureWithEcg();
  captures::Bytes bytes = captures::captureOf(records);
  const std::size_t damaged = captures::beginningsOf(records).at(2) + 30;
  bytes.at(damaged) ^= 1U;
  const Finished run = readCapture(bytes);
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, HasSubstr("walk.zcap: at byte "));
  EXPECT_THAT(run.output, HasSubstr("damaged record (checksum is wrong), 1 record lost\n"));
  EXPECT_THAT(run.output, HasSubstr("6 ECG samples from 0 to 0\n"));
}

TEST(ReadCaptureExampleTest, ACutCaptureFailsWithWhatIsBeforeTheCut) {
  const std::vector<Zephly::capture::Record> records = captureWithEcg();
  captures::Bytes bytes = captures::captureOf(records);
  bytes.resize(captures::beginningsOf(records).at(4) + 1);
  Finished run = readCapture(bytes);
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, HasSubstr("cut off in the middle of a record"));
  EXPECT_THAT(run.output, HasSubstr("6 ECG samples"));
  bytes.resize(captures::beginningsOf(records).at(4));
  run = readCapture(bytes);
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.outputLines(), Contains("read_capture: the end of the capture is missing"));
}

TEST(ReadCaptureExampleTest, RefusesAFileThatIsNotACapture) {
  const Finished run = readCapture({'t', 'e', 'x', 't'});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, HasSubstr("walk.zcap: at byte 0: not a capture\n"));
  EXPECT_EQ(Process(example("read_capture")).finish().exitCode, 2);
}

TEST(FilterCaptureExampleTest, GivesTheBitsOfTheEngineWithItsResets) {
  using namespace Zephly::capture;
  std::mt19937 random(8);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same numbers each time
  std::vector<Record> records = {
      {{}, Connected{1}},
      {{},
       CharacteristicsDiscovered{
           .peripheral = 1,
           .service = 2,
           .characteristics = {{3, respirationCharacteristicUUID().UUIDString(), "Respiration"}}}}};
  const FakeProcessorClock clock;
  Zephly::SignalProcessor engine;
  std::vector<std::string> expected = {"raw,filtered,contact"};
  for (int frame = 0; frame < 300; ++frame) {
    std::vector<std::uint8_t> bytes(18, 0);
    const bool touched = frame < 100 || frame >= 200;
    for (std::uint8_t& byte : bytes) byte = touched ? static_cast<std::uint8_t>(random()) : 0;
    FakeProcessorClock::now += 100'000;
    records.push_back({{.processor = FakeProcessorClock::now},
                       Value{.peripheral = 1, .characteristic = 3, .bytes = bytes}});
    for (const float sample : FrameDecoders::calculateECGValue(Zephly::hosts::Data(bytes))) {
      const bool contact = engine.processLeadoffDetection(sample);
      std::ostringstream line;
      line.precision(9);
      line << sample << ',' << engine.processRespiration(sample) << ',' << contact;
      expected.push_back(line.str());
    }
  }
  records.push_back({{}, Ended{}});
  const captures::ScratchDirectory scratch;
  const auto file = scratch.file("walk.zcap", captures::captureOf(records));
  const Finished run = Process(example("filter_capture", "'" + file.string() + "'")).finish();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.outputLines(), expected);
}

TEST(FilterCaptureExampleTest, RefusesAFileThatIsNotACapture) {
  const captures::ScratchDirectory scratch;
  const auto file = scratch.file("walk.zcap", {'t', 'e', 'x', 't'});
  const Finished run = Process(example("filter_capture", "'" + file.string() + "'")).finish();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, HasSubstr("walk.zcap: at byte 0: not a capture\n"));
  EXPECT_EQ(Process(example("filter_capture")).finish().exitCode, 2);
}

// Runs a program for a real strap against a fake Bluetooth service until it has printed `battery`,
// and ends it with a signal.
Finished runOnFakeBluetooth(const std::vector<std::string>& program, const std::string& battery) {
  Zephly::main_queue::MainQueue queue;
  fake_bluez::PrivateBus bus;
  fake_bluez::FakeBluez bluez(queue, bus.address());
  bus.start();
  bluez.start();
  fake_bluez::FakeDevice& strap = bluez.addDevice();
  Process process(program, Process::Output::pipe, {"DBUS_SYSTEM_BUS_ADDRESS=" + bus.address()});
  const std::string uuid = "47366e80-cf3a-11e1-9ab4-0002a5d5c51b";
  EXPECT_TRUE(turnUntil(queue, [&] { return bluez.advertise(strap); }));
  EXPECT_TRUE(turnUntil(queue, [&] { return fake_bluez::FakeBluez::subscribed(strap, uuid); }));
  EXPECT_TRUE(bluez.notify(strap, uuid, {0x84, 0x03, 0x00}));
  EXPECT_TRUE(turnUntil(queue, [&] { return process.hasWritten(battery); }));
  process.sendSignal(SIGTERM);
  EXPECT_TRUE(turnUntil(queue, [&] { return !strap.connected; })) << "not released";
  return process.finish();
}

TEST(MinimalSessionExampleTest, FindsTheStrapPrintsAndReleasesIt) {
  const Finished run = runOnFakeBluetooth(example("minimal_session"), "battery 90 %\n");
  EXPECT_EQ(run.exitCode, 128 + SIGTERM);
  EXPECT_THAT(run.outputLines(), Contains("connected"));
}

// The code of a page. Both programs run until they are ended.
std::vector<std::string> pageExample(const std::string& name) {
  return {"sh", "-c", "exec \"$0\" 2>&1", std::string(ZEPHLY_PAGE_EXAMPLES) + "/" + name};
}

TEST(ReadmeExampleTest, FindsTheStrapPrintsAndReleasesIt) {
  const Finished run = runOnFakeBluetooth(pageExample("readme_example"), "battery 90 %\n");
  EXPECT_EQ(run.exitCode, 128 + SIGTERM);
  EXPECT_THAT(run.outputLines(), Contains("connected"));
}

TEST(StartExampleTest, ConnectsAndPrintsSamples) {
  Process process(pageExample("start_example"));
  EXPECT_TRUE(process.readUntil("connected\n"));
  EXPECT_TRUE(process.readUntil("ECG "));
  process.sendSignal(SIGKILL);
  process.finish();
}

}  // namespace

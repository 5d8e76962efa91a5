// SPDX-License-Identifier: MIT
// `zephly strap` as a process: options, exit codes, lines, signals.

#include <hosts/bluez/bus.h>
#include <hosts/main_queue/main_queue.h>
#include <tests/support/fake_bluez/private_bus.h>
#include <tests/support/process.h>
#include <tests/support/turn_until.h>
#include <tests/tools/strap/bus_client.h>
#include <tests/tools/strap/fake_bluetoothd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

// If the option were accepted, the missing bus would give another exit code.
Arguments strap(Arguments more) {
  more.insert(more.begin(), {"strap", "--bus", "unix:path=/nonexistent/bus"});
  return more;
}

struct BadStrapOption {
  std::string name;
  Arguments arguments;
  std::string expected;  // the one line holds it
};

void PrintTo(const BadStrapOption& option, std::ostream* stream) { *stream << option.name; }

class StrapProgramBadOptionsTest : public testing::TestWithParam<BadStrapOption> {};

TEST_P(StrapProgramBadOptionsTest, AreOneLineAndExitCode2) {
  const Finished run = runProgram(strap(GetParam().arguments));
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_THAT(run.output, IsEmpty());
  EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr(GetParam().expected)));
  EXPECT_THAT(run.errors, StartsWith("zephly strap: "));
}

INSTANTIATE_TEST_SUITE_P(
    StrapProgram, StrapProgramBadOptionsTest,
    testing::Values(
        BadStrapOption{
            "Unknown", {"--loud"}, "unknown option \"--loud\" (see zephly strap --help)"},
        BadStrapOption{"ExtraArgument", {"extra"}, "unexpected argument \"extra\""},
        BadStrapOption{"AdapterMissing", {"--adapter"}, "--adapter: expected exactly one value"},
        BadStrapOption{"AdapterEmpty", {"--adapter", ""}, "--adapter: expected hciN"},
        BadStrapOption{"AdapterWithoutNumber", {"--adapter", "hci"}, "got \"hci\""},
        BadStrapOption{"AdapterPath", {"--adapter", "/org/bluez/hci0"}, "--adapter: expected"},
        BadStrapOption{"AdapterShortAddress", {"--adapter", "00:1A:7D:DA:71"}, "expected hciN"},
        BadStrapOption{"AdapterNoHexadecimal", {"--adapter", "00:1A:7D:DA:71:1G"}, "expected"},
        BadStrapOption{"AdapterWithDashes", {"--adapter", "00-1A-7D-DA-71-13"}, "expected"},
        BadStrapOption{"NameEmpty", {"--name", ""}, "--name: expected 1 to 29 bytes"},
        BadStrapOption{"NameTooLong", {"--name", std::string(30, 'x')}, "--name: expected 1 to 29"},
        BadStrapOption{"NameWithLineBreak", {"--name", "a\nb"}, "--name: expected 1 to 29"},
        BadStrapOption{"NameNotUtf8", {"--name", "\xFF"}, "--name: expected 1 to 29"},
        BadStrapOption{"AliasWithValue", {"--set-alias=yes"}, "--set-alias: expected no value"},
        BadStrapOption{"SeedNegative", {"--seed", "-1"}, "--seed: expected a whole number"},
        BadStrapOption{"SeedTwice", {"--seed", "1", "--seed", "2"}, "--seed: expected exactly one"},
        BadStrapOption{"RecordingAlone", {"--recording", "a.csv"}, "--recording: needs --rate"},
        BadStrapOption{"RecordingEmpty", {"--recording", "", "--rate", "9"}, "name of a file"},
        BadStrapOption{"RateAlone", {"--rate", "9"}, "--rate: needs --recording"},
        BadStrapOption{"RateNan", {"--recording", "a", "--rate", "nan"}, "from 0.001 to 100000"},
        BadStrapOption{"TrainingWithRecording",
                       {"--training", "--recording", "a", "--rate", "9"},
                       "--training: cannot be combined with --recording"},
        BadStrapOption{"LossMissing", {"--lose-link-at"}, "--lose-link-at"},
        BadStrapOption{
            "LossNegative", {"--lose-link-at", "-1"}, "--lose-link-at: expected a time like"},
        BadStrapOption{"SecondLossText",
                       {"--lose-link-at", "1", "--lose-link-at", "soon"},
                       "expected a time like 90, 10m, 1h30m or 1:30:00, got \"soon\""},
        BadStrapOption{"AbsenceAlone", {"--absence", "1"}, "--absence: needs --lose-link-at"},
        BadStrapOption{"AbsenceNan", {"--lose-link-at", "1", "--absence", "nan"}, "--absence: exp"},
        BadStrapOption{"DurationZero", {"--duration", "0"}, "a time greater than 0, got \"0\""},
        BadStrapOption{"DurationTooLong", {"--duration", "1e10"}, "got \"1e10\""},
        BadStrapOption{"FramesWithValue", {"--frames=3"}, "--frames: expected no value"}),
    [](const auto& instance) { return instance.param.name; });

TEST(StrapProgramTest, HelpListsEveryOptionExceptTheTestOption) {
  const Finished run = runProgram({"strap", "--help"});
  EXPECT_EQ(run.exitCode, 0);
  for (const char* option :
       {"--adapter", "--name", "--set-alias", "--seed", "--training", "--recording", "--rate",
        "--lose-link-at", "--absence", "--duration", "--frames", "Exit code"}) {
    EXPECT_THAT(run.output, HasSubstr(option));
  }
  EXPECT_THAT(run.output, testing::Not(HasSubstr("--bus")));
}

TEST(StrapProgramTest, WithoutABusItIsOneLineAndExitCode1) {
  const Finished run = runProgram(strap({}));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, IsEmpty());
  EXPECT_THAT(run.errorLines(), ElementsAre(StartsWith("zephly strap: no D-Bus bus (")));
}

TEST(StrapProgramTest, AMissingRecordingIsOneLineAndExitCode1) {
  const Finished run = runProgram(strap({"--recording", "/nonexistent.csv", "--rate", "100"}));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr("/nonexistent.csv")));
}

TEST(StrapProgramTest, EndsWithASignalWhileItWaitsForTheService) {
  for (const int signal : {SIGINT, SIGTERM}) {
    fake_bluez::PrivateBus bus;
    bus.start();
    Process process({"strap", "--bus", bus.address()});
    EXPECT_TRUE(process.readUntil("Bluetooth: the service org.bluez is not there"));
    process.sendSignal(signal);
    const Finished run = process.finish();
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.errors, IsEmpty());
    EXPECT_THAT(run.outputLines().back(), StartsWith("end after "));
  }
}

// The program with a client that has subscribed to everything.
class StrapProgramOnTheAirTest : public testing::Test {
 protected:
  StrapProgramOnTheAirTest() {
    bus.start();
    bluetoothd.addAdapter();
    bluetoothd.start();
    client = openBus(queue, {.address = bus.address(),
                             .rules = {"type='signal',member='PropertiesChanged',"
                                       "path_namespace='/org/zephly/strap'"}});
    client->onSignal([this](const Zephly::bluez::Signal& signal) { take(signal); });
  }

  void take(const Zephly::bluez::Signal& signal) {
    const auto* changed = Zephly::bluez::at<Zephly::bluez::Dictionary>(signal.arguments, 1);
    ASSERT_NE(changed, nullptr);
    const auto* value = Zephly::bluez::find<Zephly::bluez::Bytes>(*changed, "Value");
    if (value == nullptr) return;
    received.push_back(signal.path.substr(signal.path.rfind('/') + 1) + " " + hex(*value));
  }

  static std::string hex(const Zephly::bluez::Bytes& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
      text += "0123456789ABCDEF"[byte >> 4U];
      text += "0123456789ABCDEF"[byte & 0xFU];
    }
    return text;
  }

  void until(const std::function<bool()>& condition) {
    ASSERT_TRUE(turnUntil(queue, condition, 30s))
        << "calls: " << testing::PrintToString(bluetoothd.recordedCalls());
  }
  bool called(const std::string& call) const { return bluetoothd.wasCalled(call); }

  void subscribeToAll() {
    until([this] { return called("hci0 RegisterAdvertisement /org/zephly/advertisement {}"); });
    for (const char* stream : {"temperature", "ecg", "battery", "respiration", "motion"}) {
      client->send({bluetoothd.applicant(), std::string("/org/zephly/strap/service0/") + stream,
                    "org.bluez.GattCharacteristic1", "StartNotify"},
                   {});
    }
  }

  Zephly::main_queue::MainQueue queue;
  fake_bluez::PrivateBus bus;
  FakeBluetoothd bluetoothd{queue, bus.address()};
  std::unique_ptr<Zephly::bluez::Bus> client;
  std::vector<std::string> received;
};

// "STREAM HEX" of the lines that print a frame.
std::vector<std::string> framesOf(const Finished& run) {
  std::vector<std::string> frames;
  for (const std::string& line : run.outputLines()) {
    const std::size_t sent = line.find(" sent ");
    if (sent != std::string::npos && line.find_first_not_of("0123456789.") == sent) {
      frames.push_back(line.substr(sent + 6));
    }
  }
  return frames;
}

TEST_F(StrapProgramOnTheAirTest, EveryPrintedFrameArrivesInOrder) {
  Process process({"strap", "--bus", bus.address(), "--frames", "--seed", "7"});
  subscribeToAll();
  until([this] { return received.size() > 200; });
  process.sendSignal(SIGINT);
  until([this] {
    return called("hci0 UnregisterAdvertisement /org/zephly/advertisement") &&
           called("hci0 UnregisterApplication /org/zephly/strap");
  });
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.errors, IsEmpty());
  EXPECT_EQ(framesOf(run), received);
  for (const char* line :
       {"adapter hci0 (00:00:00:00:00:0A)", "registered on hci0",
        "advertising as \"Zephly\" on hci0", "subscribed temperature", "subscribed ecg",
        "subscribed battery", "subscribed respiration", "subscribed motion"}) {
    EXPECT_THAT(run.outputLines(), Contains(line));
  }
  EXPECT_THAT(run.outputLines(), Contains(StartsWith("sent temperature ")));
  EXPECT_THAT(
      run.outputLines().back(),
      MatchesRegex("end after [0-9.]+ s: sent temperature [0-9]+, ecg [0-9]+, battery "
                   "[0-9]+, respiration [0-9]+, motion [0-9]+; not subscribed [0-9]+, skipped 0, "
                   "connections 0, link losses 0"));
}

TEST_F(StrapProgramOnTheAirTest, LosesItsLinkAtTheGivenTimesAndAdvertisesAgain) {
  bluetoothd.connect();
  Process process({"strap", "--bus", bus.address(), "--lose-link-at", "0.5", "--absence", "0.1",
                   "--name", "Zephly 2"});
  until([this] { return called("dev_AA_BB_CC_DD_EE_FF Disconnect"); });
  bluetoothd.disconnect();
  until([this] { return bluetoothd.calls("RegisterAdvertisement") == 2; });
  process.sendSignal(SIGTERM);
  until([this] { return called("hci0 UnregisterApplication /org/zephly/strap"); });
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.outputLines(), Contains("link loss, away for 0.1 s"));
  EXPECT_THAT(run.outputLines(), Contains("connected AA:BB:CC:DD:EE:FF"));
  EXPECT_THAT(run.outputLines(), Contains("disconnected AA:BB:CC:DD:EE:FF"));
  EXPECT_THAT(run.outputLines().back(), HasSubstr("connections 1, link losses 1"));
}

TEST_F(StrapProgramOnTheAirTest, LosesItsLinkOnASignal) {
  bluetoothd.connect();
  Process process({"strap", "--bus", bus.address(), "--duration", "60"});
  until([this] { return bluetoothd.calls("RegisterAdvertisement") == 1; });
  process.sendSignal(SIGUSR1);
  until([this] { return called("dev_AA_BB_CC_DD_EE_FF Disconnect"); });
  bluetoothd.disconnect();
  process.sendSignal(SIGTERM);
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.outputLines(), Contains("link loss, away for 1 s"));
  EXPECT_THAT(run.outputLines().back(), HasSubstr("link losses 1"));
}

TEST_F(StrapProgramOnTheAirTest, EndsAfterItsDuration) {
  Process process({"strap", "--bus", bus.address(), "--duration", "0.3"});
  until([&] { return process.hasWritten("end after "); });
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.outputLines().back(), StartsWith("end after "));
}

}  // namespace

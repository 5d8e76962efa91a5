// SPDX-License-Identifier: MIT
// The n-th call of a function of the system fails, for whole commands. The rule: exit code 0 and
// the full result, or a sentence and another exit code; what existed is there afterwards; the
// program ends in time.
//
// In the tests, n grows in steps from the first and from the last call. With ZEPHLY_ALL_FAILURES=1
// in the environment the steps are smaller, and every error is tried at each place.

#include <tests/failures/content.h>
#include <tests/failures/page_viewer.h>
#include <tests/support/process.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <ostream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using failures::contentOf;
using namespace std::chrono_literals;

constexpr int shortWrite = -1;  // for failing_calls.c
constexpr int lasting = -2;     // this call and all later ones: ENOMEM
constexpr int killed = 128 + SIGKILL;

// The errors that the manual page of each function allows, as far as they can happen here. "poll"
// is epoll_wait too, "clone" the start of a thread or a program, "malloc" everything like it.
const std::map<std::string, std::vector<int>> errorsOf = {
    {"open", {EACCES, EMFILE, ENOMEM, ENOSPC}},
    {"read", {EIO, EINTR}},
    {"write", {ENOSPC, EIO, EINTR, EAGAIN, shortWrite}},
    {"fsync", {EIO, ENOSPC, EINTR}},
    {"fdatasync", {EIO, ENOSPC, EINTR}},
    {"rename", {EACCES, ENOSPC, EXDEV}},
    {"ftruncate", {EIO, EINTR}},
    {"mmap", {ENOMEM}},
    {"poll", {EINTR, ENOMEM}},
    {"clone", {EAGAIN, ENOMEM}},
    {"accept", {ECONNABORTED, EMFILE, EINTR}},
    {"receive", {ECONNRESET, EINTR, ENOMEM}},
    {"send", {ECONNRESET, EINTR, ENOBUFS}},
    {"malloc", {ENOMEM, lasting}},
};

// What the output is like when all went well.
enum class Output {
  same,      ///< as without failures
  summary,   ///< JSON, the summary at its end
  terminal,  ///< on a terminal: the summary, and the terminal as it was before
  page,      ///< the page's address
  watched,   ///< the same, and somebody looks at the page
};

struct Command {
  std::string name;
  std::vector<std::string> arguments;     ///< IN is a capture, OUT a name without an ending
  std::vector<std::string> outputs = {};  ///< endings of the files that it writes
  Output output = Output::same;
  std::vector<std::string> functions = {};  ///< empty: all
  int exitCode = 0;                         ///< without failures
};

void PrintTo(const Command& command, std::ostream* stream) { *stream << command.name; }

bool isCapture(const fs::path& path) {
  return !runProgram({"inspect", path.string()}).output.empty();
}

bool all() { return std::getenv("ZEPHLY_ALL_FAILURES") != nullptr; }

// All of the first and of the last calls, then fewer and fewer.
std::set<long> placesOf(long count) {
  const long part = all() ? 20 : 2;
  std::set<long> places;
  for (long n = 1; n <= count; n += std::max(1L, n / part)) {
    places.insert(n);
    places.insert(count + 1 - n);
  }
  return places;
}

class FailuresTest : public testing::TestWithParam<Command> {
 protected:
  FailuresTest()
      : folder_(fs::path(testing::TempDir()) / ("failures-" + std::to_string(::getpid()))) {
    fs::create_directories(folder_);
    const Finished made = runProgram(
        {"record", input().string(), "--simulated", "--duration", "2", "--speed", "1000"});
    EXPECT_EQ(made.exitCode, 0) << made.errors;
    input_ = contentOf(input());
    std::ofstream(folder_ / "xdg-open") << "#!/bin/sh\n";
    fs::permissions(folder_ / "xdg-open", fs::perms::owner_all);
  }
  ~FailuresTest() override { fs::remove_all(folder_); }

  // A process that is killed after its time may have had too little of a busy machine: once more.
  Finished run(const std::vector<std::string>& environment) {
    const Finished finished = runOnce(environment);
    return finished.exitCode == killed ? runOnce(environment) : finished;
  }

  Finished runOnce(const std::vector<std::string>& environment) {
    prepare();
    std::vector<std::string> arguments;
    for (const std::string& argument : GetParam().arguments) {
      arguments.push_back(argument == "IN"              ? input().string()
                          : argument.starts_with("OUT") ? output(argument.substr(3)).string()
                                                        : argument);
    }
    std::vector<std::string> all = {"LD_PRELOAD=" ZEPHLY_FAILING_CALLS,
                                    "PATH=" + folder_.string() + ":/usr/bin:/bin"};
    all.insert(all.end(), goodTerminal.begin(), goodTerminal.end());
    all.insert(all.end(), environment.begin(), environment.end());
    const bool terminal = GetParam().output == Output::terminal;
    Process process(arguments, terminal ? Process::Output::terminal : Process::Output::pipe, all);
    std::optional<failures::PageViewer> viewer;
    const std::regex address("Live page: http://127\\.0\\.0\\.1:(\\d+)/\n");
    std::smatch port;
    if (GetParam().output == Output::watched && process.readUntil(address) &&
        std::regex_search(process.outputSoFar(), port, address)) {
      viewer.emplace(static_cast<std::uint16_t>(std::stoi(port[1])));
    }
    // No command has more than half a second to do.
    Finished finished = process.finishWithin(3500ms);
    watched_ = viewer && viewer->finish();
    return finished;
  }

  fs::path input() const { return folder_ / "in.zcap"; }
  fs::path output(const std::string& ending) const { return folder_ / ("out" + ending); }

  // Every output exists already, with a content that must not be lost.
  void prepare() {
    for (const std::string& ending : GetParam().outputs) {
      fs::remove_all(output(ending));
      std::ofstream(output(ending)) << "precious\n";
    }
  }

  std::map<std::string, std::string> outputs() const {
    std::map<std::string, std::string> contents;
    for (const std::string& ending : GetParam().outputs)
      contents[ending] = contentOf(output(ending));
    return contents;
  }

  std::map<std::string, long> countCalls() {
    const fs::path counts = folder_ / "counts";
    reference_ = run({"FAIL_COUNTS=" + counts.string()});
    EXPECT_EQ(reference_.exitCode, GetParam().exitCode) << reference_.errors;
    EXPECT_EQ(watched_, GetParam().output == Output::watched);
    referenceOutputs_ = outputs();
    std::map<std::string, long> result;
    std::ifstream file(counts);
    std::string name;
    for (long count = 0; file >> name >> count;) result[name] = count;
    return result;
  }

  void judge(const Finished& finished) {
    ++runs_;
    EXPECT_NE(finished.exitCode, killed) << "has not ended in time";
    EXPECT_LT(finished.exitCode, 128) << "ended by a signal\n" << finished.errors;
    EXPECT_EQ(finished.errors.find("std::"), std::string::npos) << finished.errors;
    EXPECT_EQ(contentOf(input()), input_);
    checkWholeness(finished.output);
    if (finished.exitCode == GetParam().exitCode) {
      checkResult(finished);
    } else {
      ++failed_;
      checkFailure(finished);
    }
  }

  // Of JSON, every line; of a terminal, its restoration.
  void checkWholeness(const std::string& output) const {
    const auto& arguments = GetParam().arguments;
    if (std::find(arguments.begin(), arguments.end(), "--json") != arguments.end()) {
      EXPECT_TRUE(output.empty() || output.ends_with('\n')) << output.substr(output.size() - 80);
      for (const std::string& line : linesOf(output)) {
        EXPECT_TRUE(nlohmann::json::accept(line)) << line;
      }
    }
    const auto screen = output.rfind("\x1B[?1049h");
    if (screen != std::string::npos) {
      EXPECT_GT(output.rfind("\x1B[?1049l") + 1, screen + 1) << "the terminal has the screen";
    }
  }

  void checkResult(const Finished& finished) const {
    EXPECT_EQ(finished.errors, reference_.errors);
    switch (GetParam().output) {
      case Output::same:
        EXPECT_EQ(finished.output, reference_.output);
        break;
      case Output::summary:
        EXPECT_NE(finished.output.find("\"event\":\"summary\""), std::string::npos);
        break;
      case Output::terminal:
        EXPECT_NE(finished.output.find("Session of 1.0 s"), std::string::npos) << finished.output;
        EXPECT_NE(finished.output.find("electrodes"), std::string::npos) << finished.output;
        break;
      case Output::page:
      case Output::watched:
        EXPECT_TRUE(finished.output.starts_with("Live page: http://")) << finished.output;
        break;
    }
    for (const auto& [ending, content] : outputs()) {
      // A capture has the time of its recording in it: its size says whether it is whole.
      EXPECT_EQ(content.size(), referenceOutputs_.at(ending).size()) << ending;
    }
  }

  void checkFailure(const Finished& finished) const {
    EXPECT_FALSE(finished.errors.empty());
    for (const std::string& line : finished.errorLines()) {
      EXPECT_TRUE(line.starts_with("zephly")) << '"' << finished.errors << '"';
    }
    for (const auto& [ending, content] : outputs()) {
      // A capture replaces the old one when a connection has been recorded, and then grows; lines
      // replace the old ones with the first of them.
      const bool grows = ending == ".zcap" ? isCapture(output(ending))
                                           : ending == ".txt" && !content.empty() &&
                                                 referenceOutputs_.at(ending).starts_with(content);
      // Of a capture that cannot be read to its end a report shows the rest, and says why.
      const bool reported =
          ending == ".html" && content.find("\"complaints\":[\"") != std::string::npos;
      EXPECT_TRUE(grows || reported || content == "precious\n" ||
                  content.size() == referenceOutputs_.at(ending).size())
          << ending << " has " << content.size() << " bytes";
    }
  }

  bool concerns(const std::string& function) const {
    const auto& functions = GetParam().functions;
    return functions.empty() ||
           std::find(functions.begin(), functions.end(), function) != functions.end();
  }

  void failAt(const std::string& function, long n, long count, int error) {
    SCOPED_TRACE(function + ", call " + std::to_string(n) + " of " + std::to_string(count) +
                 ", error " + std::to_string(error));
    std::vector<std::string> environment = {
        "FAIL_CALL=" + function, "FAIL_AT=" + std::to_string(n),
        "FAIL_ERRNO=" + std::to_string(error == lasting ? ENOMEM : error)};
    if (error == lasting) environment.emplace_back("FAIL_FOREVER=1");
    judge(run(environment));
  }

  fs::path folder_;
  std::string input_;
  Finished reference_;
  std::map<std::string, std::string> referenceOutputs_;
  bool watched_ = false;  // the page had a viewer in the last run
  int runs_ = 0;
  int failed_ = 0;
};

TEST_P(FailuresTest, EndWithASentenceOrTheFullResult) {
  const auto counts = countCalls();
  ASSERT_EQ(counts.size(), errorsOf.size());
  for (const auto& [function, errors] : errorsOf) {
    if (!concerns(function)) continue;
    const long count = counts.at(function);
    std::size_t turn = 0;
    for (const long n : placesOf(count)) {
      if (all()) {
        for (const int error : errors) failAt(function, n, count, error);
      } else {
        failAt(function, n, count, errors.at(turn++ % errors.size()));
      }
    }
  }
  EXPECT_TRUE(failed_ > 0 || GetParam().exitCode != 0);
  std::cout << GetParam().name << ": " << runs_ << " runs, " << failed_ << " of them failed\n";
}

// The shell closes what it has inherited, so that the dynamic linker has a descriptor left.
TEST(FailuresLimitTest, TooFewDescriptorsAreASentence) {
  const Finished run = runOther(
      "/bin/sh", {"-c", "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; ulimit -n 4; exec \"$0\" \"$@\"",
                  ZEPHLY_PROGRAM, "monitor", "--simulated", "--duration", "1"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(run.errors.starts_with("zephly monitor: ")) << run.errors;
  EXPECT_TRUE(run.errors.ends_with(": Too many open files\n")) << run.errors;
}

std::vector<std::string> simulated(std::vector<std::string> begin,
                                   const std::vector<std::string>& more) {
  begin.insert(begin.end(), {"--simulated", "--duration", "1"});
  begin.insert(begin.end(), more.begin(), more.end());
  return begin;
}

INSTANTIATE_TEST_SUITE_P(
    Program, FailuresTest,
    testing::Values(
        Command{"Inspect", {"inspect", "IN"}}, Command{"InspectJson", {"inspect", "IN", "--json"}},
        Command{"Export", {"export", "IN", "--edf", "OUT.edf", "--force"}, {".edf"}},
        Command{"Vitals",
                {"vitals", "IN", "--beats", "OUT.csv", "--annotations", "OUT.zep", "--force"},
                {".csv", ".zep"}},
        Command{"Report", {"report", "IN", "--out", "OUT.html", "--force"}, {".html"}},
        Command{"Replay",
                {"replay", "IN", "--fast", "--json", "--diagnostics", "OUT.txt", "--force"},
                {".txt"}},
        Command{
            "Record", simulated({"record", "OUT.zcap", "--force"}, {"--speed", "1000"}), {".zcap"}},
        Command{"Monitor", simulated({"monitor", "--json"}, {"--speed", "1000"})},
        Command{"MonitorDiagnostics",
                simulated({"monitor", "--json", "--diagnostics", "OUT.txt", "--force"},
                          {"--speed", "1000"}),
                {".txt"}},
        Command{"MonitorTerminal", simulated({"monitor"}, {"--speed", "20"}), {}, Output::terminal},
        Command{"MonitorBluetooth",
                {"monitor", "--bus", "unix:path=/nonexistent", "--duration", "0.1", "--json"},
                {},
                Output::summary,
                {"clone", "poll"},
                1},
        Command{"View",
                simulated({"view", "--port", "0", "--exit-at-end", "--open"}, {"--speed", "1000"}),
                {},
                Output::page},
        Command{"ViewReplay",
                {"view", "--port", "0", "--exit-at-end", "--replay", "IN", "--fast"},
                {},
                Output::page},
        Command{"ViewWatched",
                simulated({"view", "--port", "0", "--exit-at-end"}, {"--speed", "10"}),
                {},
                Output::watched,
                {"poll", "accept", "receive", "send", "malloc"}}),
    [](const auto& instance) { return instance.param.name; });

}  // namespace

// SPDX-License-Identifier: MIT
// Each pair of path options of each command, with the second path in every relation to the first.
// The options come from the help of the commands, so a new one takes part by itself; only its
// direction has to be added to `directions` below.

#include <capture/file_lock.h>
#include <tests/support/process.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;

constexpr const char* precious = "precious\n";

enum class Direction {
  captureIn,
  signalsIn,
  captureOut,
  edfOut,
  csvOut,
  textOut,
  pageOut,
  annotationsOut,
  resultsOut
};

const std::map<std::string, Direction> directions = {
    {"monitor --recording", Direction::signalsIn},
    {"monitor --diagnostics", Direction::textOut},
    {"view --recording", Direction::signalsIn},
    {"view --replay", Direction::captureIn},
    {"record FILE", Direction::captureOut},
    {"record --recording", Direction::signalsIn},
    {"record --edf", Direction::edfOut},
    {"record --csv", Direction::csvOut},
    {"inspect FILE", Direction::captureIn},
    {"replay FILE", Direction::captureIn},
    {"replay --diagnostics", Direction::textOut},
    {"export FILE", Direction::captureIn},
    {"export --edf", Direction::edfOut},
    {"export --csv", Direction::csvOut},
    {"vitals INPUT", Direction::captureIn},
    {"vitals --beats", Direction::textOut},
    {"vitals --breaths", Direction::textOut},
    {"vitals --vitals", Direction::textOut},
    {"vitals --rr", Direction::textOut},
    {"vitals --annotations", Direction::annotationsOut},
    {"report FILE", Direction::captureIn},
    {"report --out", Direction::pageOut},
    {"process CAPTURE", Direction::captureIn},
    {"process --out", Direction::resultsOut},
};

bool isInput(Direction direction) {
  return direction == Direction::captureIn || direction == Direction::signalsIn;
}

/// "FILE", "INPUT" or "CAPTURE", or an option with a path as its value.
using PathOption = std::string;

// From lines of the help like "  --edf FILE     Write..." and "  FILE REQUIRED     The...".
std::vector<PathOption> pathOptionsOf(const std::string& command) {
  const Finished help = runProgram({command, "--help"});
  EXPECT_EQ(help.exitCode, 0) << command;
  static const std::regex option(R"(^  (?:-\w,)?(--[a-z-]+) (?:FILE|DIRECTORY)\b.*)");
  static const std::regex positional(R"(^  (FILE|DIRECTORY|INPUT|CAPTURE)(?: \.\.\.)? .*)");
  std::vector<PathOption> options;
  for (const std::string& line : help.outputLines()) {
    std::smatch match;
    if (std::regex_match(line, match, option) || std::regex_match(line, match, positional)) {
      options.push_back(match[1]);
    }
  }
  return options;
}

// What the second path is, compared with the first, or what it is itself.
enum class Relation {
  apart,
  same,
  hardLink,
  symbolicLink,
  inside,
  directory,
  fifo,
  existing,
  inUse
};

constexpr std::array relations = {Relation::apart,        Relation::same,     Relation::hardLink,
                                  Relation::symbolicLink, Relation::inside,   Relation::directory,
                                  Relation::fifo,         Relation::existing, Relation::inUse};

constexpr std::array relationNames = {"apart",     "same", "hard link", "symbolic link", "inside",
                                      "directory", "FIFO", "existing",  "in use"};

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Every regular file below a folder.
std::map<std::string, std::string> contentsBelow(const fs::path& folder) {
  std::map<std::string, std::string> contents;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file() && !entry.is_symlink()) {
      contents[entry.path().string()] = contentOf(entry.path());
    }
  }
  return contents;
}

std::uint64_t edfNumber(const std::string& file, std::size_t offset, std::size_t width) {
  return std::stoull(file.substr(offset, width));
}

// The size that the header of an EDF+ file states.
std::uint64_t statedSizeOfEdf(const std::string& file) {
  const std::uint64_t signals = edfNumber(file, 252, 4);
  std::uint64_t samples = 0;
  for (std::uint64_t i = 0; i < signals; ++i) {
    samples += edfNumber(file, 256 + signals * 216 + i * 8, 8);
  }
  return edfNumber(file, 184, 8) + edfNumber(file, 236, 8) * samples * 2;
}

class PathPairsTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    root_ = fs::path(testing::TempDir()) / ("path-pairs-" + std::to_string(::getpid()));
    fs::create_directories(root_);
    const Finished made =
        runProgram({"record", original().string(), "--simulated", "--duration", "3", "--speed",
                    "1000", "--csv", (root_ / "original.csv").string()});
    ASSERT_EQ(made.exitCode, 0) << made.errors;
  }
  static void TearDownTestSuite() { fs::remove_all(root_); }

  static fs::path original() { return root_ / "original.zcap"; }

  struct Case {
    std::string command;
    PathOption first;
    PathOption second;
    Relation relation{};
    bool force = false;
  };

  // The number of cases whose program ended with exit code 0.
  static int delivered_;
  static int cases_;

  static Direction directionOf(const Case& one, const PathOption& option) {
    return directions.at(one.command + " " + option);
  }

  static fs::path plainPath(const fs::path& folder, Direction direction, const std::string& name) {
    switch (direction) {
      case Direction::captureIn:
        fs::copy_file(original(), folder / (name + ".zcap"));
        return folder / (name + ".zcap");
      case Direction::signalsIn:
        fs::copy_file(root_ / "original.csv/ecg.csv", folder / (name + ".csv"));
        return folder / (name + ".csv");
      case Direction::captureOut:
        return folder / (name + ".zcap");
      case Direction::edfOut:
        return folder / (name + ".edf");
      case Direction::csvOut:
      case Direction::resultsOut:
        return folder / (name + ".d");
      case Direction::textOut:
      case Direction::pageOut:
      case Direction::annotationsOut:
        break;
    }
    return folder / (name + ".txt");
  }

  // Creates what the relation says; the second path replaces the plain one. Empty: it does not make
  // sense for this pair.
  static std::optional<fs::path> relate(const fs::path& folder, const Case& one,
                                        const fs::path& first, const fs::path& second) {
    const fs::path other = folder / "other";
    const auto create = [](const fs::path& path) {
      if (!fs::exists(path)) std::ofstream(path) << precious;
    };
    switch (one.relation) {
      case Relation::apart:
        return second;
      case Relation::same:
        return first;
      case Relation::hardLink:
        create(first);
        fs::create_hard_link(first, other);
        return other;
      case Relation::symbolicLink:
        create(first);
        fs::create_symlink(first, other);
        return other;
      case Relation::inside:
        // A name that the first one creates if it is a directory.
        return first / "ecg.csv";
      case Relation::directory:
        fs::create_directory(other);
        std::ofstream(other / "kept") << precious;
        return other;
      case Relation::fifo:
        // A recording may come through a pipe: like other filters, the program waits for its
        // writer.
        if (directionOf(one, one.second) == Direction::signalsIn) return std::nullopt;
        if (::mkfifo(other.c_str(), 0600) != 0) return std::nullopt;
        return other;
      case Relation::existing:
        if (isInput(directionOf(one, one.second))) return std::nullopt;
        create(other);
        return other;
      case Relation::inUse:
        if (isInput(directionOf(one, one.second))) return std::nullopt;
        fs::copy_file(original(), other);
        return other;
    }
    return std::nullopt;
  }

  static Arguments argumentsOf(const Case& one, const std::map<PathOption, fs::path>& paths) {
    Arguments arguments = {one.command};
    bool recording = false;
    bool output = false;
    for (const auto& [option, path] : paths) {
      if (option.starts_with("--")) arguments.push_back(option);
      arguments.push_back(path.string());
      recording |= option == "--recording";
      output |= option == "--edf" || option == "--csv";
    }
    const auto add = [&](std::initializer_list<const char*> more) {
      arguments.insert(arguments.end(), more.begin(), more.end());
    };
    const bool simulated = one.command == "monitor" || one.command == "record" ||
                           (one.command == "view" && !paths.contains("--replay"));
    if (simulated) add({"--simulated", "--speed", "1000", "--duration", "1"});
    if (recording) add({"--rate", "500"});
    if (one.command == "view") add({"--port", "0", "--exit-at-end"});
    if (one.command == "view" && !simulated) add({"--fast"});
    if (one.command == "replay") add({"--fast"});
    if (one.command == "export" && !output) add({"--edf", "/dev/null/none"});
    if (one.force) add({"--force"});
    return arguments;
  }

  static void readBack(const Case& one, Direction direction, const fs::path& path) {
    switch (direction) {
      case Direction::captureOut:
        EXPECT_EQ(runProgram({"inspect", path.string()}).exitCode, 0);
        return;
      case Direction::edfOut: {
        const std::string file = contentOf(path);
        ASSERT_GT(file.size(), 256U);
        EXPECT_EQ(file.size(), statedSizeOfEdf(file));
        return;
      }
      case Direction::csvOut:
        for (const char* name : {"ecg", "respiration", "temperature", "motion", "battery", "events",
                                 "beats", "breaths", "vitals"}) {
          const std::string file = contentOf(path / (std::string(name) + ".csv"));
          EXPECT_TRUE(file.starts_with("time_s,") && file.ends_with("\n")) << name;
        }
        return;
      case Direction::textOut:
        EXPECT_TRUE(contentOf(path).ends_with("\n")) << one.command;
        return;
      case Direction::resultsOut:
        EXPECT_TRUE(contentOf(path / "cohort.csv").starts_with("name,")) << path;
        return;
      case Direction::pageOut:
        EXPECT_TRUE(contentOf(path).ends_with("</html>\n"));
        return;
      case Direction::annotationsOut:
        EXPECT_TRUE(contentOf(path).ends_with(std::string_view("\0\0", 2)));
        return;
      default:
        return;
    }
  }

  void check(const Case& one) {
    const fs::path folder = root_ / ("case-" + std::to_string(++cases_));
    fs::create_directory(folder);
    SCOPED_TRACE(one.command + " " + one.first + " " + one.second + ", " +
                 relationNames.at(static_cast<std::size_t>(one.relation)) +
                 (one.force ? ", --force" : ""));
    std::map<PathOption, fs::path> paths;
    if (one.command == "record" || one.command == "export" || one.command == "replay" ||
        one.command == "report") {
      paths["FILE"] = plainPath(folder, directions.at(one.command + " FILE"), "file");
    }
    if (one.command == "vitals") paths["INPUT"] = plainPath(folder, Direction::captureIn, "file");
    if (one.command == "process") {
      paths["CAPTURE"] = plainPath(folder, Direction::captureIn, "file");
    }
    if (!paths.contains(one.first))
      paths[one.first] = plainPath(folder, directionOf(one, one.first), "first");
    const auto second =
        relate(folder, one, paths[one.first],
               one.second == one.first ? paths[one.first]
                                       : plainPath(folder, directionOf(one, one.second), "second"));
    if (!second) return;
    paths[one.second] = *second;

    std::optional<Zephly::capture::FileLock> lock;
    if (one.relation == Relation::inUse) lock = Zephly::capture::FileLock::take(*second);
    const auto before = contentsBelow(folder);
    const Finished run = runProgram(argumentsOf(one, paths));
    const auto after = contentsBelow(folder);

    // With --force an output may be replaced, by what is asked for; nothing else changes.
    for (const auto& [name, content] : before) {
      const bool output = std::any_of(paths.begin(), paths.end(), [&](const auto& entry) {
        std::error_code ignored;
        return !isInput(directionOf(one, entry.first)) &&
               fs::weakly_canonical(entry.second, ignored) == fs::weakly_canonical(name, ignored);
      });
      const bool input = std::any_of(paths.begin(), paths.end(), [&](const auto& entry) {
        std::error_code ignored;
        return isInput(directionOf(one, entry.first)) &&
               fs::equivalent(entry.second, name, ignored);
      });
      const bool mayChange = one.force && output && !input && !lock && run.exitCode == 0;
      if (mayChange) continue;
      ASSERT_TRUE(after.contains(name)) << name << " is gone\n" << run.errors;
      EXPECT_TRUE(after.at(name) == content) << name << " has changed\n" << run.errors;
    }
    if (run.exitCode == 0) {
      ++delivered_;
      for (const auto& [option, path] : paths) readBack(one, directionOf(one, option), path);
    } else {
      EXPECT_LT(run.exitCode, 128) << "a signal";
      EXPECT_TRUE(run.errors.starts_with("zephly " + one.command + ": ")) << run.errors;
    }
    lock.reset();
    fs::remove_all(folder);
  }

  void checkCommand(const std::string& command) {
    const std::vector<PathOption> options = pathOptionsOf(command);
    ASSERT_FALSE(options.empty());
    for (const PathOption& option : options) {
      ASSERT_TRUE(directions.contains(command + " " + option)) << command << " " << option;
    }
    const std::string help = runProgram({command, "--help"}).output;
    const bool hasForce = help.find("--force") != std::string::npos;
    for (const PathOption& first : options) {
      for (const PathOption& second : options) {
        if (first == second && options.size() > 1) continue;
        for (const Relation relation : relations) {
          check({command, first, second, relation, false});
          if (hasForce) check({command, first, second, relation, true});
        }
      }
    }
  }

  static fs::path root_;
};

fs::path PathPairsTest::root_;
int PathPairsTest::delivered_ = 0;
int PathPairsTest::cases_ = 0;

TEST_F(PathPairsTest, OfMonitor) { checkCommand("monitor"); }
TEST_F(PathPairsTest, OfView) { checkCommand("view"); }
TEST_F(PathPairsTest, OfRecord) { checkCommand("record"); }
TEST_F(PathPairsTest, OfReplay) { checkCommand("replay"); }
TEST_F(PathPairsTest, OfExport) { checkCommand("export"); }
TEST_F(PathPairsTest, OfVitals) { checkCommand("vitals"); }
TEST_F(PathPairsTest, OfReport) { checkCommand("report"); }
TEST_F(PathPairsTest, OfProcess) { checkCommand("process"); }

// Otherwise no case would check an output.
TEST_F(PathPairsTest, SomeDeliver) {
  checkCommand("export");
  EXPECT_GT(delivered_, 3);
  RecordProperty("cases", cases_);
  RecordProperty("delivered", delivered_);
}

}  // namespace

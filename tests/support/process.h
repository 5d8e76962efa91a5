// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Runs the built program as a separate process.
///
///   const Finished run = runProgram({"monitor", "--speed", "0"});
///   EXPECT_EQ(run.exitCode, 2);

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <vector>

/// The exit code and the output of a process.
struct Finished {
  int exitCode = -1;  ///< 128 + the signal's number when a signal ended it
  std::string output;
  std::string errors;

  std::vector<std::string> outputLines() const;
  std::vector<std::string> errorLines() const;
};

/// A running process with its standard output on a pipe or on a separate terminal.
class Process {
 public:
  enum class Output {
    pipe,
    terminal,  ///< a pseudo-terminal; std::system_error where the system gives none
    full,      ///< a device without free space
  };

  /// @param program  path of another program than the built one
  explicit Process(std::vector<std::string> arguments, Output output = Output::pipe,
                   const std::vector<std::string>& environment = {},
                   const std::string& program = {});
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  /// Ends the process if it is running.
  ~Process();

  /// Reads until the output contains `text`. False when the output ends, or 60 s pass, before that.
  bool readUntil(const std::string& text);
  bool readUntil(const std::regex& pattern);
  /// Reads without waiting. Returns whether the output contains `text`.
  bool hasWritten(const std::string& text);
  /// Readable when there is output.
  int descriptor() const { return output_descriptor_; }
  const std::string& outputSoFar() const { return output_; }
  void sendSignal(int signal) const;
  /// Types on the terminal of the process.
  void type(const std::string& keys) const;
  void resizeTerminal(unsigned short columns, unsigned short rows) const;
  /// Whether the terminal echoes input.
  bool echoes() const;
  /// Stops reading, as `| head` does.
  void closeOutput();
  /// Waits until the process has the file open; false when it ends before that.
  bool waitUntilItReads(const std::filesystem::path& file) const;
  /// Waits for the end without reading; false when it still runs after `limit`.
  bool waitForEnd(std::chrono::seconds limit) const;
  /// Reads the rest and waits for the end.
  Finished finish();
  /// The same, but kills the process after `limit`.
  Finished finishWithin(std::chrono::milliseconds limit);

 private:
  bool readUntil(const std::function<bool(const std::string&)>& satisfied);
  bool readSome();
  bool hasEnded() const;

  pid_t pid_ = -1;
  int output_descriptor_ = -1;
  int errors_ = -1;    // a file in memory: reading it cannot block
  int terminal_ = -1;  // keeps the terminal open after the end of the process
  std::string output_;
};

/// The environment of a terminal that has every feature except colours.
inline const std::vector<std::string> goodTerminal = {"TERM=xterm", "LC_ALL=C.UTF-8", "NO_COLOR="};

/// The arguments of `monitor` on the simulated strap, followed by `more`.
std::vector<std::string> simulatedMonitor(std::vector<std::string> more);

/// Runs the program until it exits.
Finished runProgram(const std::vector<std::string>& arguments);

/// Runs another program, by its path.
Finished runOther(const std::string& program, const std::vector<std::string>& arguments);

std::vector<std::string> linesOf(const std::string& text);

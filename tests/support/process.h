// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Runs the built program as a process of its own.
///
///   const Finished run = runProgram({"monitor", "--speed", "0"});
///   EXPECT_EQ(run.exitCode, 2);

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <regex>
#include <string>
#include <vector>

/// How a process ended and what it wrote.
struct Finished {
  int exitCode = -1;  ///< 128 + the signal's number when a signal ended it
  std::string output;
  std::string errors;

  std::vector<std::string> outputLines() const;
  std::vector<std::string> errorLines() const;
};

/// A running process with its standard output on a pipe or on a terminal of its own.
class Process {
 public:
  enum class Output {
    pipe,
    terminal,
    full,  ///< a device that has no space left
  };

  /// @param program  the path of another than the built one
  explicit Process(std::vector<std::string> arguments, Output output = Output::pipe,
                   const std::vector<std::string>& environment = {},
                   const std::string& program = {});
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  /// Ends it if it still runs.
  ~Process();

  /// Reads until `text` has come; false when the output has ended (or 60 s have passed) before.
  bool readUntil(const std::string& text);
  bool readUntil(const std::regex& pattern);
  /// Reads what has come, without waiting; says whether `text` is in it.
  bool hasWritten(const std::string& text);
  /// Readable when there is something to read.
  int descriptor() const { return output_descriptor_; }
  const std::string& outputSoFar() const { return output_; }
  void sendSignal(int signal) const;
  /// Types on its terminal.
  void type(const std::string& keys) const;
  void resizeTerminal(unsigned short columns, unsigned short rows) const;
  /// Whether its terminal shows what is typed.
  bool echoes() const;
  /// Stops reading, as `| head` does.
  void closeOutput();
  /// Reads the rest and waits for the end.
  Finished finish();

 private:
  bool readUntil(const std::function<bool(const std::string&)>& satisfied);
  bool readSome();

  pid_t pid_ = -1;
  int output_descriptor_ = -1;
  int errors_ = -1;    // a file in memory: reading it cannot block
  int terminal_ = -1;  // our hand on the terminal, so that it outlives the process
  std::string output_;
};

/// What a test sets for a terminal that can do everything but colours.
inline const std::vector<std::string> goodTerminal = {"TERM=xterm", "LC_ALL=C.UTF-8", "NO_COLOR="};

/// The arguments of a monitor on the simulated strap, and more.
std::vector<std::string> simulatedMonitor(std::vector<std::string> more);

/// Runs the program to its end.
Finished runProgram(const std::vector<std::string>& arguments);

/// Runs another program, by its path.
Finished runOther(const std::string& program, const std::vector<std::string>& arguments);

std::vector<std::string> linesOf(const std::string& text);

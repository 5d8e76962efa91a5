#pragma once
/// @file
/// What a test tells the strap while it runs: one line for each command, answered in the log with
/// "ok" or "error".

#include <tests/bluetooth/att_strap/att_strap.h>
#include <tests/bluetooth/att_strap/event_log.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::att_strap {

/// Understands lines like these (README of this folder tells them all):
///
///   disconnect 13
///   refuse ecg 0e
class Commands {
 public:
  /// `quit` ends the program.
  Commands(AttStrap& strap, EventLog& log, std::function<void()> quit);

  /// One line without its end.
  void perform(std::string_view line);

 private:
  using Words = std::vector<std::string>;
  struct Command {
    std::string_view name;
    std::string_view arguments;                   ///< as the answer to a wrong line tells them
    std::function<bool(const Words& words)> run;  ///< false when the words make no sense
  };

  void addFaults();
  void addAppearance();
  void addValues();

  AttStrap& strap_;
  EventLog& log_;
  std::vector<Command> commands_;
};

}  // namespace Zephly::att_strap

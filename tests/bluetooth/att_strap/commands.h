// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The commands that a running strap takes: one line each, answered in the log with "ok" or
/// "error".

#include <tests/bluetooth/att_strap/att_strap.h>
#include <tests/bluetooth/att_strap/event_log.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::att_strap {

/// Parses and runs lines like these (all are listed in the README of tests/bluetooth):
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
    std::string_view arguments;                   ///< as listed in the answer to an invalid line
    std::function<bool(const Words& words)> run;  ///< false when the words are invalid
  };

  void addFaults();
  void addAppearance();
  void addValues();

  AttStrap& strap_;
  EventLog& log_;
  std::vector<Command> commands_;
};

}  // namespace Zephly::att_strap

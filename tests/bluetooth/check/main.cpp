// SPDX-License-Identifier: MIT
/// The program `bluetooth_check`: a session on the machine's Bluetooth against straps that follow
/// commands. Runs in the guest of scripts/test-bluetooth; prints a table, and exits with 0 when
/// every check has passed.

#include <tests/bluetooth/check/report.h>
#include <tests/bluetooth/check/session_checks.h>
#include <tests/bluetooth/check/stage.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

using namespace Zephly::bluetooth_check;
using Zephly::bluez::Notifications;

int run(int argc, char** argv) {
  CLI::App program("Checks the host on BlueZ.", "bluetooth_check");
  std::vector<std::string> checks;
  std::string table;
  bool descriptors = false;
  bool bluezAtBothEnds = false;
  Zephly::bluez::Options options;
  program.add_option("checks", checks,
                     "rate, losses, restarts, odd, sizes, strangers, ends, shared");
  program.add_option("--table", table, "file for the table")->required();
  program.add_flag("--descriptors", descriptors, "values through descriptors, not by signals");
  program.add_flag("--bluez-strap", bluezAtBothEnds, "the strap is `zephly strap`");
  program.add_option("--adapter", options.adapter, "the session's adapter");
  CLI11_PARSE(program, argc, argv);
  if (descriptors) options.notifications = Notifications::descriptors;
  const auto wanted = [&checks](const char* check) {
    return std::find(checks.begin(), checks.end(), check) != checks.end();
  };

  Stage stage;
  Report report;
  SessionChecks session(stage, report, bluezAtBothEnds ? bluezStrap(stage) : commandedStrap(stage),
                        options);
  session.begin();
  if (wanted("rate")) session.fullRate(Seconds(30));
  if (wanted("ends")) session.bluezStrapLosses(3);
  if (wanted("shared")) session.sharedRestarts();
  if (wanted("losses")) session.linkLosses(20);
  if (wanted("restarts")) session.restarts();
  if (wanted("odd")) session.oddSizes({0, 1, 19, 20});
  if (wanted("odd")) session.oddStraps();
  if (wanted("sizes")) session.oddSizes({0, 1, 19, 20, 21, 512});
  if (wanted("strangers")) session.strangers();
  session.usage();
  session.leave();
  std::ofstream(table) << report.table();
  return report.passed() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "bluetooth_check: " << error.what() << '\n';
    return 2;
  }
}

// SPDX-License-Identifier: MIT
// Runs a session for hours of strap time and compares its calls with the frames of the strap.
// Prints tables in Markdown on standard output, and a line for each strap hour on standard error.
// The exit code is 1 after a difference, and 2 for wrong options.

#include <tests/soak/report.h>
#include <tests/soak/soak.h>

#include <CLI/CLI.hpp>

#include <exception>
#include <iostream>
#include <map>
#include <random>
#include <string>

namespace {

int soakAndReport(const soak::Options& options) {
  std::cerr << "seed " << options.seed << std::endl;
  const soak::Outcome outcome = soak::run(options);
  soak::writeReport(std::cout, options, outcome);
  for (const std::string& wrong : outcome.wrong) std::cerr << "wrong: " << wrong << std::endl;
  return outcome.wrong.empty() ? 0 : 1;
}

int parseAndSoak(int argc, char** argv) {
  soak::Options options;
  options.seed = std::random_device()();
  CLI::App app("A session, hours of strap time, and everything that it says compared.");
  app.add_option("--hours", options.hours, "Strap time")->capture_default_str();
  app.add_option("--losses", options.losses, "Losses of the link")->capture_default_str();
  app.add_option("--electrode-losses", options.electrodeLosses, "Losses of the electrodes")
      ->capture_default_str();
  app.add_option("--seed", options.seed, "Same seed, same events (default: another each time)");
  const std::map<std::string, soak::Fault> faults = {
      {"drop-frame", soak::Fault::dropFrame},
      {"repeat-frame", soak::Fault::repeatFrame},
      {"leak-memory", soak::Fault::leakMemory},
      {"leak-descriptor", soak::Fault::leakDescriptor}};
  app.add_option("--fault", options.fault, "Do something wrong now and then, to see it found")
      ->transform(CLI::CheckedTransformer(faults, CLI::ignore_case));
  CLI11_PARSE(app, argc, argv);
  return soakAndReport(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return parseAndSoak(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "error: " << error.what() << '\n';
    return 2;
  }
}

// SPDX-License-Identifier: MIT
/// The program `zephly_make_capture`: writes a capture of the simulated strap at full speed.

#include <tools/common/option_values.h>
#include <bench/make_capture/simulated_recording.h>

#include <CLI/CLI.hpp>

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using Zephly::bench::SimulatedRecording;

constexpr int mostInterruptions = 100'000;

int countValue(const std::string& option, const std::string& text) {
  const auto count = Zephly::tools::parseNumber<int>(text);
  if (!count || *count < 0 || *count > mostInterruptions) {
    Zephly::tools::rejectValue(option, "a number from 0 to 100000", text);
  }
  return *count;
}

double driftValue(const std::string& text) {
  const auto drift = Zephly::tools::parseNumber<double>(text);
  if (!drift || !(*drift >= -500) || !(*drift <= 500)) {
    Zephly::tools::rejectValue("--drift", "parts per million from -500 to 500", text);
  }
  return *drift;
}

int write(const SimulatedRecording& recording, const std::string& name) {
  if (std::filesystem::exists(name)) {
    std::cerr << "zephly_make_capture: " << name << " exists already\n";
    return 1;
  }
  std::ofstream file(name, std::ios::binary);
  try {
    writeSimulatedRecording(recording, file);
    file.close();
    if (file) return 0;
    std::cerr << "zephly_make_capture: cannot write " << name << '\n';
  } catch (const std::invalid_argument& error) {
    std::cerr << "zephly_make_capture: " << error.what() << '\n';
  }
  std::filesystem::remove(name);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  using Zephly::tools::addValue;
  CLI::App program("Writes a capture of the simulated strap at full speed.", "zephly_make_capture");
  SimulatedRecording recording;
  std::string file;
  addValue(program, "FILE", "", "The capture, a new file", [&](const std::string& text) {
    file = text;
  })->required();
  addValue(
      program, "--seed", "N", "Of the wearer and of all that happens (default 1)",
      [&](const std::string& text) { recording.seed = Zephly::tools::seedValue("--seed", text); });
  addValue(program, "--duration", "TIME", "90, 10m, 24h (default 1 min)",
           [&](const std::string& text) {
             recording.duration =
                 Zephly::tools::timeValue("--duration", text, Zephly::tools::shortestDuration);
           });
  addValue(program, "--losses", "N", "Losses of the link (default 0)",
           [&](const std::string& text) { recording.losses = countValue("--losses", text); });
  addValue(program, "--electrodes-off", "N", "Times without contact (default 0)",
           [&](const std::string& text) {
             recording.electrodesOff = countValue("--electrodes-off", text);
           });
  addValue(program, "--drift", "PPM", "How fast the strap's clock is (default 0)",
           [&](const std::string& text) { recording.driftPpm = driftValue(text); });
  try {
    program.parse(argc, argv);
    return write(recording, file);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? 0 : 2;
  } catch (const std::exception& error) {
    std::cerr << "zephly_make_capture: " << error.what() << '\n';
    return 1;
  }
}

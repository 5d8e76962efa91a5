// SPDX-License-Identifier: MIT
#include <tools/strap/options.h>

#include <tools/common/bluetooth_options.h>
#include <tools/common/option_values.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>

namespace Zephly::peripheral {

namespace {

using tools::addFlag;
using tools::addValue;

std::string name(const std::string& text) {
  const bool printable = std::none_of(text.begin(), text.end(), [](unsigned char character) {
    return std::iscntrl(character) != 0;
  });
  if (text.empty() || text.size() > Options::longestName || !printable || !isUtf8(text)) {
    tools::rejectValue("--name",
                       "1 to " + std::to_string(Options::longestName) + " bytes of printable UTF-8",
                       text);
  }
  return text;
}

// The length of the UTF-8 character that begins with this byte; 0 for a byte that begins none.
std::size_t characterLength(unsigned char first) {
  if (first >= 0x01 && first <= 0x7F) return 1;
  if (first >= 0xC2 && first <= 0xDF) return 2;
  if (first >= 0xE0 && first <= 0xEF) return 3;
  if (first >= 0xF0 && first <= 0xF4) return 4;
  return 0;
}

// The second byte decides about overlong forms, surrogates and code points above U+10FFFF.
bool isSecondByte(unsigned char first, unsigned char second) {
  const unsigned char lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const unsigned char highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  return second >= lowest && second <= highest;
}

}  // namespace

bool isUtf8(const std::string& text) {
  for (std::size_t i = 0; i < text.size();) {
    const auto first = static_cast<unsigned char>(text[i]);
    const std::size_t length = characterLength(first);
    if (length == 0 || i + length > text.size()) return false;
    for (std::size_t k = 1; k < length; ++k) {
      const auto byte = static_cast<unsigned char>(text[i + k]);
      if (k == 1 ? !isSecondByte(first, byte) : (byte & 0xC0U) != 0x80U) return false;
    }
    i += length;
  }
  return true;
}

void addOptions(CLI::App& command, Options& options) {
  tools::addBluetoothOptions(command, options.bluetooth);
  addValue(command, "--name", "NAME", "The advertised name (default Zephly)",
           [&](const std::string& text) { options.name = name(text); });
  addFlag(command, "--set-alias", options.setAlias,
          "Also set the adapter's own name, until the program ends");
  addValue(command, "--seed", "N", "The wearer's seed: same seed, same frames (default 1)",
           [&](const std::string& text) { options.seed = tools::seedValue("--seed", text); });
  addFlag(command, "--training", options.training,
          "The wearer exercises, takes the electrodes off and loses the link, every 30 s");
  addValue(
      command, "--recording", "FILE",
      "Play the signals of a CSV file of at most 1 GiB once all streams are subscribed, then end; "
      "needs --rate",
      [&](const std::string& text) { options.recording = tools::fileValue("--recording", text); });
  addValue(command, "--rate", "HZ", "Rows per second of the recording",
           [&](const std::string& text) {
             options.rowsPerSecond = tools::rowRateValue("--rate", text);
           });
  command
      .add_option_function<std::vector<std::string>>(
          "--lose-link-at",
          [&](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) {
              options.lossTimes.push_back(tools::timeValue("--lose-link-at", text, 0));
            }
          },
          "Disconnect TIME after the start; may be repeated")
      ->type_name("TIME")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  addValue(
      command, "--absence", "TIME",
      "How long the strap stays disconnected after each --lose-link-at (default 1 s)",
      [&](const std::string& text) { options.absence = tools::timeValue("--absence", text, 0); });
  addValue(command, "--duration", "TIME", "End after TIME: 90, 10m, 1h30m or 1:30:00",
           [&](const std::string& text) {
             options.duration = tools::timeValue("--duration", text, tools::shortestDuration);
           });
  addFlag(command, "--frames", options.frames, "Print every frame that is sent");
}

void checkTogether(const Options& options) {
  tools::checkRecording(options.recording.has_value(), options.rowsPerSecond.has_value());
  if (options.recording && options.training) {
    throw CLI::ValidationError("--training", "cannot be combined with --recording");
  }
  if (options.absence && options.lossTimes.empty()) {
    throw CLI::ValidationError("--absence", "needs --lose-link-at TIME");
  }
}

}  // namespace Zephly::peripheral

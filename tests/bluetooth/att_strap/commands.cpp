// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/commands.h>

#include <zephly/protocol/streams.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <optional>
#include <sstream>
#include <utility>

namespace Zephly::att_strap {

namespace {

template <typename Number>
std::optional<Number> numberIn(const std::string& text, int base = 10) {
  Number number = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number, base);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return number;
}

std::optional<bool> switchIn(const std::string& text) {
  if (text == "on") return true;
  if (text == "off") return false;
  return std::nullopt;
}

std::optional<Stream> streamIn(const std::string& text) {
  for (const Stream stream : allStreams) {
    if (streamInfo(stream).name == text) return stream;
  }
  return std::nullopt;
}

std::optional<Step> stepIn(const std::string& text) {
  if (text == "connection") return Step::connection;
  if (text == "discovery") return Step::discovery;
  if (text == "subscription") return Step::subscription;
  return std::nullopt;
}

// Calls `use` with the value, if there is one.
template <typename Value, typename Use>
bool with(const std::optional<Value>& value, const Use& use) {
  if (value) use(*value);
  return value.has_value();
}

}  // namespace

Commands::Commands(AttStrap& strap, EventLog& log, std::function<void()> quit)
    : strap_(strap), log_(log) {
  addFaults();
  addAppearance();
  addValues();
  commands_.push_back({"quit", "", [quit = std::move(quit)](const Words& words) {
                         quit();
                         return words.size() == 1;
                       }});
}

void Commands::addFaults() {
  using std::chrono::seconds;
  commands_.push_back({"disconnect", "[REASON]", [this](const Words& words) {
                         if (words.size() > 2) return false;
                         const std::string why = words.size() == 2 ? words[1] : "13";
                         return with(numberIn<std::uint8_t>(why, 16),
                                     [this](std::uint8_t code) { strap_.disconnect(code); });
                       }});
  commands_.push_back({"vanish", "SECONDS", [this](const Words& words) {
                         return words.size() == 2 &&
                                with(numberIn<unsigned>(words[1]),
                                     [this](unsigned absence) { strap_.vanish(seconds(absence)); });
                       }});
  commands_.push_back({"unplug", "SECONDS", [this](const Words& words) {
                         return words.size() == 2 &&
                                with(numberIn<unsigned>(words[1]),
                                     [this](unsigned absence) { strap_.unplug(seconds(absence)); });
                       }});
  commands_.push_back({"freeze", "on|off", [this](const Words& words) {
                         return words.size() == 2 && with(switchIn(words[1]), [this](bool on) {
                                  strap_.faults().setFrozen(on);
                                });
                       }});
  commands_.push_back({"freeze-at", "discovery|subscription", [this](const Words& words) {
                         return words.size() == 2 && with(stepIn(words[1]), [this](Step step) {
                                  strap_.faults().freezeAt(step);
                                });
                       }});
  commands_.push_back({"drop-at", "connection|discovery|subscription", [this](const Words& words) {
                         return words.size() == 2 && with(stepIn(words[1]), [this](Step step) {
                                  strap_.faults().dropAt(step);
                                });
                       }});
  commands_.push_back({"refuse", "STREAM CODE | refuse none", [this](const Words& words) {
                         if (words.size() == 2 && words[1] == "none") {
                           strap_.refuse(std::nullopt, 0);
                           return true;
                         }
                         if (words.size() != 3) return false;
                         const auto code = numberIn<std::uint8_t>(words[2], 16);
                         return code && with(streamIn(words[1]),
                                             [&](Stream stream) { strap_.refuse(stream, *code); });
                       }});
  commands_.push_back({"early", "on|off", [this](const Words& words) {
                         return words.size() == 2 &&
                                with(switchIn(words[1]), [this](bool on) { strap_.setEarly(on); });
                       }});
}

void Commands::addAppearance() {
  commands_.push_back({"advertise", "on|off", [this](const Words& words) {
                         return words.size() == 2 && with(switchIn(words[1]), [this](bool on) {
                                  strap_.setAdvertising(on);
                                });
                       }});
  commands_.push_back({"advname", "NAME|-", [this](const Words& words) {
                         if (words.size() != 2) return false;
                         strap_.setAdvertisedName(words[1] == "-" ? std::nullopt
                                                                  : std::optional(words[1]));
                         return true;
                       }});
  commands_.push_back({"gapname", "NAME", [this](const Words& words) {
                         if (words.size() != 2) return false;
                         strap_.setGapName(words[1]);
                         return true;
                       }});
}

void Commands::addValues() {
  commands_.push_back({"raw", "STREAM [HEX]", [this](const Words& words) {
                         if (words.size() != 2 && words.size() != 3) return false;
                         const auto stream = streamIn(words[1]);
                         const auto value = fromHex(words.size() == 3 ? words[2] : "");
                         return stream && value && strap_.notifyRaw(*stream, *value);
                       }});
  commands_.push_back({"stream", "on|off", [this](const Words& words) {
                         return words.size() == 2 && with(switchIn(words[1]), [this](bool on) {
                                  strap_.streamer().setOn(on);
                                });
                       }});
  commands_.push_back({"rate", "PER-SECOND SIZE COUNT", [this](const Words& words) {
                         if (words.size() != 4) return false;
                         const auto rate = numberIn<unsigned>(words[1]);
                         const auto size = numberIn<std::size_t>(words[2]);
                         const auto count = numberIn<unsigned>(words[3]);
                         if (!rate || !size || !count) return false;
                         if (*size < Streamer::shortestMeasured || *size > 512) return false;
                         strap_.streamer().measure(*rate, *size, *count);
                         return true;
                       }});
  commands_.push_back({"counts", "", [this](const Words& words) {
                         strap_.logCounts();
                         return words.size() == 1;
                       }});
}

void Commands::perform(std::string_view line) {
  std::istringstream stream{std::string(line)};
  Words words;
  for (std::string word; stream >> word;) words.push_back(word);
  if (words.empty()) return;
  const auto found =
      std::find_if(commands_.begin(), commands_.end(),
                   [&words](const Command& command) { return command.name == words[0]; });
  if (found == commands_.end()) return log_.event("error " + std::string(line) + ": unknown");
  const bool done = found->run(words);
  log_.event(done ? "ok " + std::string(line)
                  : "error " + std::string(line) + ": not possible now, or not of the form \"" +
                        std::string(found->name) + ' ' + std::string(found->arguments) + '"');
}

}  // namespace Zephly::att_strap

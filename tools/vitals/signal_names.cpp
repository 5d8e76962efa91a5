// SPDX-License-Identifier: MIT
#include <tools/vitals/input_error.h>
#include <tools/vitals/signal_names.h>

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>
#include <vector>

namespace Zephly::recorders {

namespace {

// The ranges of vitals/vitals.h.
constexpr double slowestEcg = 100;
constexpr double slowestRespiration = 10;
constexpr double fastestSignal = 1000;

bool isLetterOrDigit(char one) {
  return (one >= 'a' && one <= 'z') || (one >= '0' && one <= '9') ||
         (static_cast<unsigned char>(one) & 0x80U) != 0;
}

// In lower case.
std::vector<std::string> wordsOf(const std::string& name) {
  std::vector<std::string> words(1);
  for (const char one : lowerCase(name)) {
    if (isLetterOrDigit(one)) {
      words.back() += one;
    } else if (!words.back().empty()) {
      words.emplace_back();
    }
  }
  if (words.back().empty()) words.pop_back();
  return words;
}

// I to III, aVR to aVF, V1 to V9 and V1R to V9R, and the same of a monitor (MLII, MV5).
bool isLead(std::string word) {
  if (word.starts_with("ml")) word.erase(0, 2);
  if (word.starts_with("mv") && word.size() == 3) word.erase(0, 1);
  static constexpr std::array<std::string_view, 5> limb = {"ii", "iii", "avr", "avl", "avf"};
  if (std::find(limb.begin(), limb.end(), word) != limb.end()) return true;
  if (word.size() == 3 && word.back() == 'r') word.pop_back();
  return word.size() == 2 && word[0] == 'v' && word[1] >= '1' && word[1] <= '9';
}

// 500, 31.25
std::string rateText(double rate) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << rate;
  return text.str();
}

std::string listOfSignals(const SignalFile& file) {
  constexpr std::size_t most = 20;
  std::string list;
  const std::vector<SignalInfo>& signals = file.signals();
  for (std::size_t i = 0; i < std::min(most, signals.size()); ++i) {
    list += (i == 0 ? "" : ", ") + excerpt(signals[i].name);
  }
  return signals.size() > most ? list + " and more" : list;
}

std::size_t namedSignal(const SignalFile& file, const std::string& option,
                        const std::string& name) {
  const std::vector<SignalInfo>& signals = file.signals();
  auto found = std::find_if(signals.begin(), signals.end(),
                            [&](const SignalInfo& one) { return one.name == name; });
  if (found == signals.end()) {
    found = std::find_if(signals.begin(), signals.end(), [&](const SignalInfo& one) {
      return lowerCase(one.name) == lowerCase(name);
    });
  }
  if (found == signals.end()) {
    throw InputError(file.files().front(),
                     option + ": no signal " + excerpt(name) + "; it has " + listOfSignals(file));
  }
  return static_cast<std::size_t>(found - signals.begin());
}

std::optional<std::size_t> firstSignal(const SignalFile& file, bool (*is)(const std::string&)) {
  const std::vector<SignalInfo>& signals = file.signals();
  const auto found = std::find_if(signals.begin(), signals.end(),
                                  [&](const SignalInfo& one) { return is(one.name); });
  if (found == signals.end()) return std::nullopt;
  return static_cast<std::size_t>(found - signals.begin());
}

bool isWithin(const SignalInfo& signal, double slowest) {
  return signal.rate >= slowest && signal.rate <= fastestSignal;
}

void checkSignalRate(const SignalFile& file, std::size_t signal, double slowest) {
  const SignalInfo& info = file.signals()[signal];
  if (isWithin(info, slowest)) return;
  throw InputError(file.files().front(), excerpt(info.name) + " has " + rateText(info.rate) +
                                             " samples per second; " + rateText(slowest) + " to " +
                                             rateText(fastestSignal) + " expected");
}

}  // namespace

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& one : lower) {
    if (one >= 'A' && one <= 'Z') one = static_cast<char>(one - 'A' + 'a');
  }
  return lower;
}

NamedUnit splitUnit(const std::string& text) {
  for (const auto& [open, close] : {std::pair{'(', ')'}, std::pair{'[', ']'}}) {
    const std::size_t begin = text.find(open);
    if (begin == std::string::npos || text.back() != close) continue;
    const std::size_t end = text.find_last_not_of(' ', begin == 0 ? 0 : begin - 1);
    return {begin == 0 || end == std::string::npos ? "" : text.substr(0, end + 1),
            text.substr(begin + 1, text.size() - begin - 2)};
  }
  const std::size_t dash = text.rfind('_');
  if (dash == std::string::npos) return {text, ""};
  const std::string unit = text.substr(dash + 1);
  static constexpr std::array<std::string_view, 4> times = {"s", "ms", "us", "ns"};
  const bool known =
      millivoltsOf(unit) || std::find(times.begin(), times.end(), unit) != times.end();
  return known ? NamedUnit{text.substr(0, dash), unit} : NamedUnit{text, ""};
}

bool isEcgName(const std::string& name) {
  const std::vector<std::string> words = wordsOf(splitUnit(name).name);
  // A single letter is a lead only when it is alone: "Battery V" is none.
  if (words.size() == 1 && (words[0] == "i" || words[0] == "v")) return true;
  return std::any_of(words.begin(), words.end(), [](const std::string& word) {
    return word.starts_with("ecg") || word.starts_with("ekg") || word == "lead" || isLead(word);
  });
}

bool isRespirationName(const std::string& name) {
  static constexpr std::array<std::string_view, 6> beginnings = {"resp",  "rsp",  "thora",
                                                                 "chest", "abdo", "imped"};
  const std::vector<std::string> words = wordsOf(splitUnit(name).name);
  const bool ecg = isEcgName(name);
  return !ecg && std::any_of(words.begin(), words.end(), [](const std::string& word) {
    return std::any_of(beginnings.begin(), beginnings.end(),
                       [&](std::string_view beginning) { return word.starts_with(beginning); });
  });
}

std::optional<double> millivoltsOf(const std::string& unit) {
  if (unit == "mV") return 1;
  if (unit == "V") return 1e3;
  if (unit == "uV" || unit == "\u00B5V" || unit == "\u03BCV") return 1e-3;
  if (unit == "nV") return 1e-6;
  return std::nullopt;
}

SignalChoice chooseSignals(const SignalFile& file, const SignalOptions& options) {
  SignalChoice choice;
  if (options.ecg) {
    choice.ecg = namedSignal(file, "--signal", *options.ecg);
  } else {
    choice.ecg = firstSignal(file, isEcgName);
  }
  if (options.respiration) {
    choice.respiration = namedSignal(file, "--respiration", *options.respiration);
  } else {
    choice.respiration = firstSignal(file, isRespirationName);
    const auto& found = choice.respiration;
    if (found && !isWithin(file.signals()[*found], slowestRespiration)) choice.respiration.reset();
  }
  if (!choice.ecg && !choice.respiration && file.signals().size() == 1) choice.ecg = 0;
  if (!choice.ecg && !choice.respiration) {
    throw InputError(
        file.files().front(),
        "no signal is named like an ECG (see --signal); it has " + listOfSignals(file));
  }
  if (choice.ecg && choice.ecg == choice.respiration) {
    throw InputError(file.files().front(), "--signal and --respiration name the same signal");
  }
  if (choice.ecg) checkSignalRate(file, *choice.ecg, slowestEcg);
  if (choice.respiration) checkSignalRate(file, *choice.respiration, slowestRespiration);
  return choice;
}

}  // namespace Zephly::recorders

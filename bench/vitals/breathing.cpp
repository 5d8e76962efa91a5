// SPDX-License-Identifier: MIT
// Measures the breathing of vitals on simulated wearers, whose breaths are known, and writes a
// Markdown tables to standard output.

#include <simulator/strap.h>
#include <tests/support/breath_marks.h>
#include <tests/support/breathing_trial.h>
#include <tests/support/recording.h>
#include <vitals/breath_detector.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <numeric>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Zephly::StrapTime;
using Zephly::simulator::Interval;
using Zephly::simulator::StrapOptions;
using Zephly::simulator::TrainingPlan;
using Zephly::simulator::Wearer;
using Zephly::vitals::Time;

constexpr StrapTime length = 10min;
constexpr StrapTime shortestPause = 12500ms;
constexpr StrapTime soonest = 5s;  // of a pause, in which a rate may still be reported
constexpr StrapTime beginning = 20s, ending = 5s;  // of a trial, not counted
constexpr int wearers = 8;                         // of each condition, one seed each

struct Condition {
  std::string name;
  std::function<StrapOptions()> options;
};

StrapOptions quiet(Wearer wearer) {
  StrapOptions options;
  options.plan = TrainingPlan::quiet();
  options.wearer = std::move(wearer);
  return options;
}

std::vector<Interval> every(StrapTime period, StrapTime first, StrapTime duration) {
  std::vector<Interval> intervals;
  for (StrapTime start = first; start + duration < length; start += period)
    intervals.push_back({start, duration});
  return intervals;
}

std::vector<Condition> conditions() {
  return {
      {"rest, steady", [] { return quiet({}); }},
      {"rest, durations vary by 10 %, sighs",
       [] { return quiet({.irregularity = 0.1, .sighs = 0.03}); }},
      {"irregular, durations vary by 25 %",
       [] { return quiet({.irregularity = 0.25, .sighs = 0.03}); }},
      {"slow, 6 a minute",
       [] {
         return quiet({.breathingRate = {{0s, 6}}, .irregularity = 0.05});
       }},
      {"exercise, 14 to 40 a minute",
       [] {
         return quiet({.heartRate = {{0s, 64}, {300s, 160}, {600s, 80}},
                       .breathingRate = {{0s, 14}, {300s, 40}, {600s, 14}},
                       .irregularity = 0.05});
       }},
      {"walking",
       [] {
         StrapOptions options = quiet({.irregularity = 0.1, .stepArtefact = 0.3});
         options.plan.walks = {{10s, 580s}};
         return options;
       }},
      {"speech, 20 of 40 s",
       [] { return quiet({.irregularity = 0.1, .talks = every(40s, 20s, 20s)}); }},
      {"speech throughout",
       [] {
         return quiet({.talks = {{0s, length}}});
       }},
      {"cough, every 20 s",
       [] {
         Wearer wearer{.irregularity = 0.1};
         for (StrapTime at = beginning; at < length; at += beginning)
           wearer.coughs.push_back(at + 300ms);
         return quiet(wearer);
       }},
      {"posture, every 60 s",
       [] {
         Wearer wearer{.irregularity = 0.1};
         double level = 1.5;
         for (StrapTime at = length / 20; at < length; at += length / 10, level = -level)
           wearer.postures.push_back({at, level, level > 0 ? 0.5 : 1.3, level > 0 ? 0.7 : 1.2});
         return quiet(wearer);
       }},
      {"movement, 10 of 40 s",
       [] { return quiet({.irregularity = 0.1, .movements = every(40s, 20s, 10s)}); }},
      {"apnoea of 10 s, every 40 s",
       [] { return quiet({.irregularity = 0.1, .apnoeas = every(40s, 30s, 13s)}); }},
      {"apnoea of 20 s, every 60 s",
       [] { return quiet({.irregularity = 0.1, .apnoeas = every(60s, 30s, 23s)}); }},
      {"lead-off, 10 of 60 s",
       [] {
         StrapOptions options = quiet({.irregularity = 0.1});
         options.plan.electrodesOff = every(60s, 30s, 10s);
         return options;
       }},
  };
}

struct Score {
  double seconds = 0;
  double known = 0;         // seconds in which the truth has a rate, with contact
  double answered = 0;      // of these
  double answeredElse = 0;  // without contact
  std::vector<double> errors;
  double breaths = 0;
  double found = 0;
  double wrong = 0;
  int pauses = 0;  // 10 s and more without an end of inspiration, and 10 s more
  int noticed = 0;
};

void countPauses(Score& score, const BreathingTrial& trial) {
  for (std::size_t i = 1; i < trial.truth.ends.size(); ++i) {
    const StrapTime from = trial.truth.ends[i - 1];
    const StrapTime to = trial.truth.ends[i];
    if (to - from < shortestPause || from < beginning) continue;
    ++score.pauses;
    if (std::ranges::any_of(trial.seconds, [&](const BreathingTrial::Second& second) {
          return second.time > from + soonest && second.time <= to && !second.perMinute;
        }))
      ++score.noticed;
  }
}

// A rate is compared with the true one of `delay` earlier: the usual delay of a breath.
// `sameBreath` 0: the times of single breaths have no meaning.
void add(Score& score, const BreathingTrial& trial, const TrainingPlan& plan, Time delay,
         Time sameBreath) {
  for (const BreathingTrial::Second& second : trial.seconds) {
    if (second.time < beginning) continue;
    ++score.seconds;
    if (!plan.electrodesOn(second.time - 1ns)) {
      score.answeredElse += second.perMinute ? 1 : 0;
      continue;
    }
    const auto truth = trial.trueRate(second.time - delay);
    if (truth) ++score.known;
    if (!second.perMinute) continue;
    if (truth) {
      ++score.answered;
      score.errors.push_back(std::abs(*second.perMinute - *truth));
    }
  }
  countPauses(score, trial);
  if (sameBreath == StrapTime::zero()) return;
  std::size_t next = 0;
  for (const StrapTime end : trial.truth.ends) {
    if (end < beginning || end > length - ending) continue;
    if (!plan.electrodesOn(end)) continue;
    ++score.breaths;
    while (next < trial.breaths.size() && trial.breaths[next].time < end - sameBreath) ++next;
    if (next < trial.breaths.size() && trial.breaths[next].time <= end + sameBreath) {
      ++score.found;
      ++next;
    }
  }
  for (const auto& breath : trial.breaths) {
    if (breath.time < beginning || breath.time > length - ending) continue;
    if (std::ranges::none_of(trial.truth.ends, [&](StrapTime end) {
          return std::chrono::abs(end - breath.time) <= sameBreath;
        }))
      ++score.wrong;
  }
}

std::string percent(double part, double whole) {
  if (whole == 0) return "-";
  std::ostringstream text;
  text << std::fixed << std::setprecision(1) << 100 * part / whole;
  return text.str();
}

void row(const std::string& name, Score& score) {
  std::cout << "| " << name << " | " << std::fixed << std::setprecision(2);
  if (score.errors.empty()) {
    std::cout << "- | - | ";
  } else {
    const double sum = std::accumulate(score.errors.begin(), score.errors.end(), 0.0);
    std::ranges::sort(score.errors);
    const auto count = static_cast<double>(score.errors.size());
    std::cout << sum / count << " | " << score.errors[static_cast<std::size_t>(0.95 * (count - 1))]
              << " | ";
  }
  std::cout << percent(score.answered, score.known) << " | " << percent(score.found, score.breaths)
            << " | " << percent(score.found, score.found + score.wrong) << " | ";
  if (score.pauses > 0)
    std::cout << score.noticed << " of " << score.pauses << " | ";
  else
    std::cout << "- | ";
  std::cout << static_cast<int>(score.answeredElse) << " |\n";
}

void table(BreathSource source, Time delay, Time sameBreath) {
  std::cout
      << "| wearer | rate: mean absolute error | 95th percentile | answered | breaths found | "
         "of the reported, real | pauses noticed | seconds answered without contact |\n"
         "|---|--:|--:|--:|--:|--:|--:|--:|\n";
  for (const Condition& condition : conditions()) {
    Score score;
    for (int seed = 1; seed <= wearers; ++seed) {
      StrapOptions options = condition.options();
      options.seed = static_cast<std::uint64_t>(seed);
      add(score, tryBreathing(options, length, source), options.plan, delay, sameBreath);
    }
    row(condition.name, score);
  }
}

// The chest band of tests/data against the breaths that were marked in it by hand.
void recorded() {
  constexpr double rate = 100;
  constexpr int windowSeconds = 60;
  Zephly::vitals::BreathDetector detector(rate);
  std::vector<double> breaths;
  std::int64_t index = 0;
  for (const auto& row : readRecording("resting_5min_100hz.csv")) {
    detector.push(Time(index++ * 10'000'000), row.at(2));
    while (const auto breath = detector.next()) breaths.push_back(Zephly::seconds(breath->time));
  }
  const auto end = static_cast<int>(index / static_cast<std::int64_t>(rate));

  const BreathMarks marks = readBreathMarks();
  std::cout << "| marks | number | breaths reported | windows of 60 s within 1 a minute | mean "
               "absolute error |\n|---|--:|--:|--:|--:|\n";
  const auto countFrom = [](const std::vector<double>& times, int from) {
    return static_cast<double>(std::ranges::count_if(
        times, [&](double time) { return time >= from && time < from + windowSeconds; }));
  };
  const auto line = [&](const std::string& name, const std::vector<double>& times,
                        const std::vector<double>& reported) {
    int windows = 0;
    int near = 0;
    double sum = 0;
    for (int from = 0; from + windowSeconds <= end; ++from) {
      const double error = std::abs(countFrom(reported, from) - countFrom(times, from));
      ++windows;
      near += error <= 1 ? 1 : 0;
      sum += error;
    }
    std::cout << "| " << name << " | " << times.size() << " | " << reported.size() << " | " << near
              << " of " << windows << " | " << std::setprecision(2) << sum / windows << " |\n";
  };
  std::vector<double> others;
  std::ranges::copy_if(breaths, std::back_inserter(others),
                       [&](double time) { return !marks.isUncertain(time); });
  line("certain; at an uncertain one nothing counts", marks.certain, others);
  line("certain", marks.certain, breaths);
  line("all", marks.all, breaths);
}

}  // namespace

int main() {
  std::cout << "Breathing from the impedance, simulated wearers:\n\n";
  table(BreathSource::impedance, 1500ms, 1s);
  std::cout << "\nBreathing from the beats of the ECG, the same wearers:\n\n";
  table(BreathSource::beats, 4s, 0s);
  std::cout << "\nBreathing from a recorded chest band, against marks by hand:\n\n";
  recorded();
}

// SPDX-License-Identifier: MIT
// Measures offline/ beside the kit, in one run: each stage and chain in each form, then a day of
// ECG and respiration with contact and resets. Writes a Markdown table to standard output. Rounds
// of all forms alternate, and processor time is counted, because the machine may do other work.
// With
// --quick each is measured once, and the day is extrapolated from ten minutes.

#include <zephly/dsp/leadoff_detector.h>
#include <zephly/dsp/median_filter.h>
#include <zephly/dsp/normalization_filter.h>
#include <zephly/dsp/processor_clock.h>
#include <zephly/dsp/signal_processor.h>
#include <offline/contact_detector.h>
#include <offline/ecg_chain.h>
#include <offline/respiration_engine.h>
#include <offline/running_median.h>
#include <offline/running_normalization.h>
#include <offline/vector_forms.h>

#include <bench/inputs.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <iterator>
#include <span>
#include <string>
#include <vector>

namespace {

using Zephly::offline::FrameTime;
using Zephly::offline::VectorForms;

constexpr std::size_t frameSamples = 6;
constexpr std::uint64_t frameDuration = 12'000;  // microseconds
constexpr std::size_t dayMinutes = 24 * 60;

// Ten minutes; contact is lost for the last ten seconds.
struct Recording {
  std::vector<float> ecg;
  std::vector<float> respiration;
  std::vector<FrameTime> frames;  // from 0 on
};

Recording tenMinutes() {
  Recording recording;
  for (int minute = 0; minute < 10; ++minute) {
    const auto append = [](std::vector<float>& to, const std::vector<float>& from) {
      to.insert(to.end(), from.begin(), from.end());
    };
    append(recording.ecg, bench::ecgSamples());
    append(recording.respiration, bench::respirationSamples());
  }
  std::fill(recording.respiration.end() - 10 * static_cast<int>(bench::waveformRate),
            recording.respiration.end(), 2.42F);
  for (std::size_t i = 0; i < recording.ecg.size(); i += frameSamples) {
    recording.frames.push_back({frameSamples, i / frameSamples * frameDuration});
  }
  return recording;
}

std::uint64_t kitsClock = 0;

// What is measured: the kit, the scalar form, or that of an instruction set.
struct Form {
  std::string name;
  bool isKit = false;
  const VectorForms* forms = nullptr;
};

std::vector<Form> allForms() {
  std::vector<Form> all = {{"kit", true, nullptr}, {"scalar", false, nullptr}};
  const auto vectors = Zephly::offline::allVectorForms();
  std::transform(vectors.rbegin(), vectors.rend(), std::back_inserter(all),
                 [](const VectorForms* forms) {
                   return Form{forms->name, false, forms};
                 });
  return all;
}

// One row: runs the stage and returns how many samples it had. Without `kit`: kitsNanoseconds().
struct Stage {
  std::string name;
  std::function<std::size_t()> kit;
  std::function<std::size_t()> offline;
};

double processorSeconds() {
  return static_cast<double>(std::clock()) / static_cast<double>(CLOCKS_PER_SEC);
}

// Nanoseconds per sample.
double measure(const std::function<std::size_t()>& run) {
  const double begin = processorSeconds();
  const std::size_t samples = run();
  return (processorSeconds() - begin) * 1e9 / static_cast<double>(samples);
}

class Stages {
 public:
  explicit Stages(const Recording& recording)
      : recording_(recording),
        wide_(recording.respiration.begin(), recording.respiration.end()),
        wideOut_(wide_.size()),
        out_(wide_.size()),
        contact_(wide_.size()) {}

  std::vector<Stage> all() {
    return {{"median of 300",
             [this] {
               MedianFilter median(300);
               return each(wide_, [&](double x) { return median.process(x); });
             },
             [this] {
               Zephly::offline::RunningMedian median;
               median.process(wide_, wideOut_);
               return wide_.size();
             }},
            {"normalisation by extremes of 5,000",
             [this] {
               NormalizationFilter normalization(5000, true);
               return each(wide_, [&](double x) { return normalization.process(x); });
             },
             [this] {
               Zephly::offline::RunningNormalization<5000> normalization;
               normalization.process(wide_, out_);
               return wide_.size();
             }},
            {"lead-off",
             [this] {
               Zephly::LeadoffDetector detector;
               return each(recording_.respiration, [&](float x) { return detector.process(x); });
             },
             [this] {
               Zephly::offline::ContactDetector detector;
               detector.process(recording_.respiration, contact_);
               return contact_.size();
             }},
            {"respiration chain",
             [this] {
               Zephly::SignalProcessor engine;
               return each(recording_.respiration,
                           [&](float x) { return engine.processRespiration(x); });
             },
             [this] {
               Zephly::offline::RespirationChain chain;
               chain.process(recording_.respiration, out_);
               return out_.size();
             }},
            {"ECG chain",
             [this] {
               Zephly::SignalProcessor engine;
               return each(recording_.ecg, [&](float x) { return engine.processECG(x); });
             },
             [this] {
               Zephly::offline::EcgChain chain;
               chain.process(recording_.ecg, out_);
               return out_.size();
             }},
            {"both chains with lead-off and resets", nullptr, [this] { return offlineDay(10); }}};
  }

  // Of the kit, with lead-off and resets. Half a minute with contact and the ten seconds without
  // are measured, and count as much as they do in the recording.
  double kitsNanoseconds() const {
    constexpr std::size_t second = bench::waveformRate;
    const std::size_t end = recording_.ecg.size();
    Zephly::SignalProcessor engine;
    run(engine, end - 50 * second, end - 40 * second);
    const double on = measure([&] { return run(engine, end - 40 * second, end - 10 * second); });
    const double off = measure([&] { return run(engine, end - 10 * second, end); });
    const double share = static_cast<double>(10 * second) / static_cast<double>(end);
    return on * (1 - share) + off * share;
  }

  std::size_t offlineDay(std::size_t minutes) {
    Zephly::offline::EcgChain ecg;
    Zephly::offline::RespirationEngine engine;
    std::vector<FrameTime> frames = recording_.frames;
    std::size_t done = 0;
    for (; done < minutes * 60 * bench::waveformRate; done += out_.size()) {
      engine.process(recording_.respiration, frames, out_, contact_);
      benchmark::DoNotOptimize(out_.data());
      ecg.process(recording_.ecg, out_);
      benchmark::DoNotOptimize(out_.data());
      for (FrameTime& frame : frames) frame.processorTime += frames.size() * frameDuration;
    }
    return done;
  }

 private:
  std::size_t run(Zephly::SignalProcessor& engine, std::size_t begin, std::size_t end) const {
    for (std::size_t i = begin; i < end; ++i) {
      kitsClock = i / frameSamples * frameDuration;
      benchmark::DoNotOptimize(engine.processLeadoffDetection(recording_.respiration[i]));
      benchmark::DoNotOptimize(engine.processRespiration(recording_.respiration[i]));
      benchmark::DoNotOptimize(engine.processECG(recording_.ecg[i]));
    }
    return end - begin;
  }

  // The kit's share of a recording: 10 seconds.
  template <class Sample, class Process>
  static std::size_t each(const std::vector<Sample>& samples, const Process& process) {
    constexpr std::size_t count = 10 * bench::waveformRate;
    for (std::size_t i = 0; i < count; ++i) benchmark::DoNotOptimize(process(samples[i]));
    return count;
  }

  const Recording& recording_;
  std::vector<double> wide_;
  std::vector<double> wideOut_;
  std::vector<float> out_;
  std::vector<std::uint8_t> contact_;
};

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

std::string figure(double value) {
  char text[32];
  std::snprintf(text, sizeof text, value < 100 ? "%.2f" : "%.0f", value);
  return text;
}

void printRow(const std::string& name, const std::vector<std::string>& cells) {
  std::printf("| %s", name.c_str());
  for (const std::string& cell : cells) std::printf(" | %s", cell.c_str());
  std::puts(" |");
}

void printHead(const std::vector<Form>& forms) {
  std::vector<std::string> names;
  for (const Form& form : forms) names.push_back(form.name);
  printRow("", names);
  std::printf("|---");
  for (std::size_t i = 0; i < forms.size(); ++i) std::printf("|--:");
  std::puts("|");
}

}  // namespace

int main(int argc, char** argv) {
  const bool quick = argc == 2 && std::strcmp(argv[1], "--quick") == 0;
  if (argc != 1 && !quick) {
    std::fputs("usage: zephly_recordings [--quick]\n", stderr);
    return 2;
  }
  const std::size_t rounds = quick ? 1 : 7;
  const std::size_t minutes = quick ? 10 : dayMinutes;

  Zephly::setProcessorClock([] { return kitsClock; });
  const Recording recording = tenMinutes();
  Stages stages(recording);
  const std::vector<Stage> rows = stages.all();
  const std::vector<Form> forms = allForms();
  std::vector<std::vector<std::vector<double>>> measured(
      rows.size(), std::vector<std::vector<double>>(forms.size()));
  std::vector<std::vector<double>> days(forms.size());
  for (std::size_t round = 0; round < rounds; ++round) {
    for (std::size_t row = 0; row < rows.size(); ++row) {
      for (std::size_t form = 0; form < forms.size(); ++form) {
        Zephly::offline::useVectorForms(forms[form].forms);
        const auto& run = forms[form].isKit ? rows[row].kit : rows[row].offline;
        measured[row][form].push_back(run ? measure(run) : stages.kitsNanoseconds());
      }
    }
    if (round > 2) continue;
    for (std::size_t form = 0; form < forms.size(); ++form) {
      Zephly::offline::useVectorForms(forms[form].forms);
      const double nanoseconds = forms[form].isKit
                                     ? stages.kitsNanoseconds()
                                     : measure([&] { return stages.offlineDay(minutes); });
      days[form].push_back(nanoseconds * 1e-9 * 60 * bench::waveformRate * dayMinutes);
    }
  }

  std::puts(
      "The kit beside `offline/`, which gives the same bits: sample by "
      "sample, and in the "
      "vectors of each\ninstruction set. Nanoseconds of processor time per sample.\n");
  printHead(forms);
  for (std::size_t row = 0; row < rows.size(); ++row) {
    std::vector<std::string> cells;
    for (const auto& values : measured[row]) cells.push_back(figure(median(values)));
    printRow(rows[row].name, cells);
  }
  std::printf(
      "\nA day of ECG and respiration at 500 samples a second, with lead-off and resets: seconds "
      "of one processor.\n"
      "%s; the kit is extrapolated from 40 seconds.\n\n",
      quick ? "Extrapolated from ten minutes" : "All of its samples are processed");
  printHead(forms);
  std::vector<std::string> seconds;
  std::vector<std::string> ratios;
  for (const auto& values : days) {
    seconds.push_back(figure(median(values)));
    ratios.push_back(figure(median(days[0]) / median(values)));
  }
  printRow("seconds", seconds);
  printRow("times as fast as the kit", ratios);
  return 0;
}

// SPDX-License-Identifier: MIT
#include <tools/vitals/vitals_command.h>

#include <tools/common/option_values.h>
#include <tools/common/output.h>
#include <tools/common/progress.h>
#include <tools/common/terminal.h>
#include <tools/export/end_signals.h>
#include <tools/vitals/csv_reader.h>
#include <tools/vitals/output_files.h>
#include <tools/vitals/vitals_input.h>
#include <tools/vitals/vitals_summary.h>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zephly::recorders {

namespace {

struct VitalsOptions {
  std::vector<std::string> inputs;
  InputOptions input;
  OutputOptions output;
  bool json = false;
};

// Passes everything on to several.
class Receivers final : public vitals::Receiver {
 public:
  void add(vitals::Receiver& receiver) { receivers_.push_back(&receiver); }

  void beat(const vitals::Beat& beat) override {
    for (vitals::Receiver* const one : receivers_) one->beat(beat);
  }
  void breath(const vitals::Breath& breath) override {
    for (vitals::Receiver* const one : receivers_) one->breath(breath);
  }
  void second(const vitals::Second& second) override {
    for (vitals::Receiver* const one : receivers_) one->second(second);
  }

 private:
  std::vector<vitals::Receiver*> receivers_;
};

// A status line on a terminal, and the end at Ctrl-C.
class VitalsStatus {
 public:
  VitalsStatus() : progress_(errors_, tools::isDrawableTerminal(STDERR_FILENO)) {}
  VitalsStatus(const VitalsStatus&) = delete;
  VitalsStatus& operator=(const VitalsStatus&) = delete;
  ~VitalsStatus() { progress_.end(); }

  void show(double part) {
    if (exporting::EndSignals::came()) throw std::runtime_error("interrupted; nothing was written");
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds between{200};
    const auto now = Clock::now();
    if (now < next_) return;
    next_ = now + between;
    progress_.status("Reading: " + std::to_string(static_cast<int>(100 * part)) + " %");
  }

 private:
  tools::Output errors_{STDERR_FILENO};
  tools::Progress progress_;
  std::chrono::steady_clock::time_point next_;
};

struct Outcome {
  std::string text;  // for standard output
  std::vector<std::string> complaints;
};

Outcome vitalsOf(const std::filesystem::path& path, const VitalsOptions& options) {
  const std::unique_ptr<VitalsInput> input = openVitalsInput(path, options.input);
  OutputFiles files(options.output, input->files(), input->annotationClock());
  VitalsSummary summary;
  Receivers receivers;
  receivers.add(summary);
  receivers.add(files);
  Outcome outcome;
  {
    VitalsStatus status;
    outcome.complaints = input->play(receivers, [&](double part) { status.show(part); });
  }
  const std::vector<exporting::WrittenFile> written = files.publish();
  if (options.json) {
    outcome.text = summary.json(input->about()).text() + "\n";
  } else {
    outcome.text = summary.text(input->about()) + exporting::writtenText(written);
  }
  return outcome;
}

void checkOptions(const VitalsOptions& options) {
  if (options.inputs.size() > 1 && options.output.any()) {
    throw CLI::ValidationError(
        "an output file is that of one INPUT: run zephly vitals once for each of them");
  }
}

int run(const VitalsOptions& options) {
  checkOptions(options);
  const exporting::EndSignals signals;
  tools::Output output(STDOUT_FILENO);
  bool failed = false;
  const auto complain = [&](const std::string& complaint) {
    std::cerr << "zephly vitals: " << complaint << '\n';
    failed = true;
  };
  for (const std::string& name : options.inputs) {
    const std::filesystem::path path = tools::fileValue("INPUT", name);
    try {
      const Outcome outcome = vitalsOf(path, options);
      output.writeLast(outcome.text);
      for (const std::string& complaint : outcome.complaints) complain(complaint);
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::runtime_error& error) {
      complain(error.what());
    }
    if (exporting::EndSignals::came()) break;
  }
  output.finish();
  if (const auto failure = output.failure()) complain("standard output: " + *failure);
  return failed ? tools::exitFailed : tools::exitDone;
}

double csvRateValue(const std::string& text) {
  const auto rate = tools::parseNumber<double>(text);
  if (!rate || !(*rate >= CsvReader::slowestRate) || !(*rate <= CsvReader::fastestRate)) {
    tools::rejectValue("--rate", "rows per second from 0.001 to 100000", text);
  }
  return *rate;
}

void addInputs(CLI::App& command, std::vector<std::string>& inputs) {
  command
      .add_option("INPUT", inputs,
                  "Captures (.zcap), and recordings in EDF, BDF, WFDB (.hea) or CSV")
      ->type_name("")
      ->required();
}

void addOutputs(CLI::App& command, OutputOptions& output) {
  const auto add = [&](const char* name, const char* help,
                       std::optional<std::filesystem::path>& path) {
    tools::addValue(command, name, "FILE", help, [name, &path](const std::string& text) {
      path = tools::fileValue(name, text);
    });
  };
  add("--beats", "Write the beats as CSV", output.beats);
  add("--breaths", "Write the breaths as CSV", output.breaths);
  add("--vitals", "Write heart rate, breathing rate and quality of each second as CSV",
      output.vitals);
  add("--rr", "Write the RR intervals as text, for Kubios and other programs", output.rr);
  add("--annotations", "Write the beats as a WFDB annotation file", output.annotations);
}

}  // namespace

tools::Command addVitalsCommand(CLI::App& program) {
  CLI::App* command = program.add_subcommand(
      "vitals", "Find beats, heart rate and breathing in captures and other recordings");
  command->footer(
      "Examples:\n"
      "  zephly vitals walk.zcap                              a summary\n"
      "  zephly vitals 101.hea --beats beats.csv --annotations 101.zep\n"
      "  zephly vitals holter.edf --signal \"ECG II\" --rr rr.txt\n"
      "  zephly vitals ecg.csv --rate 250 --json | jq .heartRate.median\n"
      "\n"
      "Not a medical device. docs/vitals.md describes the numbers, the formats and the columns.\n"
      "Output files appear when they are complete; after an error or Ctrl-C, not at all.\n"
      "A damaged capture is read up to the damage; other damaged files are not used.\n"
      "Exit code: 0 success; 1 file not written, or an input unusable or damaged; 2 wrong "
      "options.");
  const auto options = std::make_shared<VitalsOptions>();
  addInputs(*command, options->inputs);
  tools::addValue(*command, "--signal", "NAME",
                  "The ECG (default: the first that is named like one)",
                  [options](const std::string& text) { options->input.signals.ecg = text; });
  tools::addValue(
      *command, "--respiration", "NAME",
      "The respiration (default: the first that is named like one)",
      [options](const std::string& text) { options->input.signals.respiration = text; });
  tools::addValue(
      *command, "--rate", "HZ", "Rows per second of a CSV file (default: from its column of times)",
      [options](const std::string& text) { options->input.file.rate = csvRateValue(text); });
  tools::addFlag(*command, "--search-back", options->input.searchBack,
                 "Also report the strongest candidate where a beat is missing, marked late");
  addOutputs(*command, options->output);
  const auto overwrite = std::make_shared<bool>(false);
  tools::addFlag(*command, "--force", *overwrite, "Replace existing files");
  tools::addFlag(*command, "--json", options->json, "Write one JSON object for each input");
  return {command, [options, overwrite] {
            if (*overwrite) options->output.existing = exporting::Existing::replaced;
            return run(*options);
          }};
}

}  // namespace Zephly::recorders

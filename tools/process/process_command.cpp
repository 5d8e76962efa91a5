// SPDX-License-Identifier: MIT
#include <tools/process/process_command.h>

#include <capture/file_names.h>
#include <capture/text.h>
#include <tools/common/option_values.h>
#include <tools/common/output.h>
#include <tools/common/output_path.h>
#include <tools/export/end_signals.h>
#include <tools/export/pending_directory.h>
#include <tools/export/unfinished.h>
#include <tools/process/capture_result.h>
#include <tools/process/cohort.h>
#include <tools/process/process_options.h>
#include <tools/process/run_status.h>
#include <tools/process/work_list.h>
#include <tools/process/worker_pool.h>

#include <CLI/CLI.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace Zephly::processing {

namespace {

constexpr int exitInterrupted = 130;  // as a shell has it for a program that Ctrl-C has ended
constexpr std::size_t mostJobs = 1024;

std::size_t processors() { return std::max(1U, std::thread::hardware_concurrency()); }

void createOut(const std::filesystem::path& out) {
  if (::mkdir(out.c_str(), 0777) < 0 && errno != EEXIST) throw tools::cannotWrite(out, errno);
  if (!std::filesystem::is_directory(out)) throw tools::cannotWrite(out, "not a directory");
}

// What killed runs have left of any capture.
void sweepLeftovers(const std::filesystem::path& out) {
  std::error_code unreadable;
  std::set<std::string> targets;
  for (const std::string& name : capture::fileNames(out, unreadable)) {
    targets.insert(exporting::targetOfUnfinished(name));
  }
  targets.erase("");
  for (const std::string& target : targets) {
    exporting::PendingDirectory::sweep(out / target, resultNames());
  }
}

void refuseCohortAsInput(const ProcessOptions& options) {
  for (const std::filesystem::path& capture : options.captures) {
    if (tools::isSameFile(options.out / cohortName, capture)) {
      throw tools::cannotWrite(options.out / cohortName, "it is an input");
    }
  }
}

Outcome processOne(const WorkItem& item, const ProcessOptions& options, WorkerLine& line) {
  try {
    const ResultReport report = writeResult(
        {.capture = item.capture, .directory = options.out / item.name, .forms = options.forms},
        [&](double part) {
          if (exporting::EndSignals::came()) throw Interrupted{};
          line.progress(part);
        });
    for (const std::string& complaint : report.complaints) line.complain(complaint);
    if (!report.complaints.empty()) return Outcome::defective;
    return report.wasThere ? Outcome::wasThere : Outcome::done;
  } catch (const Interrupted&) {
    line.complain(capture::printable(item.capture.string()) + ": interrupted");
    return Outcome::failed;
  }
}

std::string summaryText(const RunStatus& status, std::size_t all) {
  const auto part = [&](Outcome outcome, const char* words) {
    return std::to_string(status.count(outcome)) + " " + words;
  };
  return std::to_string(all) + (all == 1 ? " capture: " : " captures: ") +
         part(Outcome::done, "done") + ", " + part(Outcome::wasThere, "already done") + ", " +
         part(Outcome::defective, "damaged") + ", " + part(Outcome::failed, "failed") + "\n";
}

int interrupted() {
  std::cerr << "zephly process: interrupted; finished captures are kept, the same command goes on "
               "with the others\n";
  return exitInterrupted;
}

int runProcess(const ProcessOptions& options) {
  const std::vector<WorkItem> items = workList(options.captures);
  refuseCohortAsInput(options);
  createOut(options.out);
  const exporting::EndSignals signals;
  sweepLeftovers(options.out);
  std::string text;
  bool failed = false;
  {
    RunStatus status(items);
    const Work work = [&](std::size_t index, WorkerLine& line) {
      return processOne(items.at(index), options, line);
    };
    if (!runWorkers(items.size(), options.jobs, work, status)) {
      status.end();
      return interrupted();
    }
    failed = status.count(Outcome::failed) + status.count(Outcome::defective) > 0;
    if (!items.empty()) text = summaryText(status, items.size());
  }
  if (options.cohort) {
    try {
      const std::size_t rows = writeCohort(options.out);
      text += (options.out / cohortName).string() + ": " + std::to_string(rows) +
              (rows == 1 ? " row\n" : " rows\n");
    } catch (const Interrupted&) {
      return interrupted();
    }
  }
  tools::Output output(STDOUT_FILENO);
  output.write(text);
  output.finish();
  if (const auto failure = output.failure()) {
    std::cerr << "zephly process: standard output: " << *failure << '\n';
    failed = true;
  }
  return failed ? tools::exitFailed : tools::exitDone;
}

std::size_t jobsValue(const std::string& text) {
  const auto jobs = tools::parseNumber<std::size_t>(text);
  if (!jobs || *jobs < 1 || *jobs > mostJobs) {
    tools::rejectValue("--jobs", "a number from 1 to 1024", text);
  }
  return *jobs;
}

}  // namespace

tools::Command addProcessCommand(CLI::App& program) {
  CLI::App* command =
      program.add_subcommand("process", "Convert and evaluate many captures, on all processors");
  command->footer(
      "Examples:\n"
      "  zephly process captures/*.zcap --out results          one directory for each capture\n"
      "  zephly process captures/*.zcap --out results --csv    as CSV files, as export writes "
      "them\n"
      "  zephly process --out results                          only write results/cohort.csv anew\n"
      "\n"
      "The result of NAME.zcap is results/NAME with signals.h5, events.csv, summary.json and\n"
      "manifest.json. It appears when it is complete. A capture whose result is there and still\n"
      "right is skipped, so the same command goes on where an earlier one has ended. Several may\n"
      "run at the same time.\n"
      "A damaged capture is processed up to the damage. docs/process.md describes the files.\n"
      "Exit code: 0 all done; 1 a capture damaged or failed; 2 wrong options; 130 interrupted.");
  const auto options = std::make_shared<ProcessOptions>();
  const auto captures = std::make_shared<std::vector<std::string>>();
  command->add_option("CAPTURE", *captures, "The captures (.zcap)")->type_name("");
  tools::addValue(
      *command, "--out", "DIRECTORY", "Where the results are written",
      [options](const std::string& text) { options->out = tools::fileValue("--out", text); })
      ->required();
  options->jobs = processors();
  tools::addValue(*command, "--jobs", "N",
                  "Captures at the same time (default: the number of processors)",
                  [options](const std::string& text) { options->jobs = jobsValue(text); });
  tools::addFlag(*command, "--hdf5", options->forms.hdf5,
                 "Write an HDF5 file, signals.h5 (default, unless another form is given)");
  CLI::Option* edf = tools::addFlag(*command, "--edf", options->forms.edf,
                                    "Write an EDF+ file, signals.edf (see docs/export.md)");
  tools::addFlag(*command, "--edf-discontinuous", options->forms.edfDiscontinuous,
                 "Leave gaps out of the EDF+ file (EDF+D; default: fill them with zeros)")
      ->needs(edf);
  tools::addFlag(*command, "--csv", options->forms.csv,
                 "Write a CSV file for each stream, and for beats, breaths and vitals");
  const auto noCohort = std::make_shared<bool>(false);
  tools::addFlag(*command, "--no-cohort", *noCohort,
                 "Do not write cohort.csv, the table of all results");
  return {command, [options, captures, noCohort] {
            options->cohort = !*noCohort;
            Forms& forms = options->forms;
            forms.hdf5 = forms.hdf5 || (!forms.edf && !forms.csv);
            for (const std::string& name : *captures) {
              options->captures.push_back(tools::fileValue("CAPTURE", name));
            }
            if (options->captures.empty() && !options->cohort) {
              throw CLI::RequiredError("a CAPTURE");
            }
            return runProcess(*options);
          }};
}

}  // namespace Zephly::processing

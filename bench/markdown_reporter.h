// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Writes the figures of a suite as Markdown tables to standard output, when all are complete.

#include <bench/suite.h>
#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

class MarkdownReporter : public benchmark::BenchmarkReporter {
 public:
  /// Ratios are relative to the figure `reference`, which must be one of the suite's.
  MarkdownReporter(const Suite& suite, const Figure& reference);

  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

  /// Whether a measurement ended in an error, which is written to standard error.
  bool failed() const { return failed_; }

 private:
  /// The repetitions of one figure.
  struct Repetitions {
    std::vector<double> nanoseconds;  // of processor time, per counted thing
    bool subnormal = false;           // at least half of the results were
  };

  void writeTable(const Section& section) const;
  void writeRow(const Section& section, const std::string& row,
                const std::vector<std::string>& columns) const;
  const Repetitions* find(const Figure& figure) const;

  const Suite& suite_;
  std::string reference_;
  std::map<std::string, Repetitions> measured_;
  bool failed_ = false;
};

}  // namespace bench

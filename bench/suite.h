// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The list of all measurements: figures in sections, one table each.
///
///   suite.add({.section = "Filters", .row = "median of 5", .column = "real"}, [](auto& state) {
///     for ([[maybe_unused]] auto _ : state) ...;
///     state.SetItemsProcessed(state.iterations() * samplesPerIteration);
///   });
///
/// The unit of a figure (a sample, a frame, a second of the strap) is what the function passes to
/// SetItemsProcessed.

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// The common properties of one table's figures.
struct Section {
  std::string title;
  std::string unit;      ///< what is counted: "sample", "frame"
  std::string question;  ///< one sentence above the table
};

/// The place of one figure, and the rate of its unit.
struct Figure {
  std::string section;        ///< title of a section that was added before
  std::string row;            ///< without a slash
  std::string column = "ns";  ///< without a slash
  double rate = 0;            ///< per second of the strap; 0: no rate
};

/// Counter with the share of results that were subnormal numbers, 0 to 1.
inline constexpr const char* subnormalShare = "subnormal";

class Suite {
 public:
  void add(Section section);

  /// `iterations` 0: chosen by Google Benchmark.
  void add(const Figure& figure, std::function<void(benchmark::State&)> measure,
           benchmark::IterationCount iterations = 0);

  const std::vector<Section>& sections() const { return sections_; }
  /// In the order in which they were added.
  const std::vector<Figure>& figures() const { return figures_; }

  /// The name under which a figure is registered with Google Benchmark.
  static std::string name(const Figure& figure);

 private:
  std::vector<Section> sections_;
  std::vector<Figure> figures_;
};

void addFilters(Suite& suite);
void addChains(Suite& suite);
void addMotion(Suite& suite);
void addDecoders(Suite& suite);
void addSession(Suite& suite);
void addFirstSample(Suite& suite);

}  // namespace bench

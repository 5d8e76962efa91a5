// SPDX-License-Identifier: MIT
// Measures the kit's run times and writes Markdown tables to standard output. Takes the options
// of Google Benchmark (--benchmark_filter=..., --benchmark_repetitions=...). Exits with 1 when a
// measurement could not be made.

#include <bench/markdown_reporter.h>
#include <bench/suite.h>
#include <benchmark/benchmark.h>

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

  bench::Suite suite;
  bench::addFilters(suite);
  bench::addChains(suite);
  bench::addMotion(suite);
  bench::addDecoders(suite);
  bench::addSession(suite);
  bench::addFirstSample(suite);

  // One filter section is a chain of dependent operations. Its time does not depend on the
  // placement of code and data, unlike that of a filter that does nothing.
  bench::MarkdownReporter reporter(
      suite, {.section = "Filters", .row = "BiquadFilter notch 0.25, order 2", .column = "real"});
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return reporter.failed() ? 1 : 0;
}

// Measures how long the kit takes and writes Markdown tables on standard output. Takes the options
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

  // One section of a filter is a chain of dependent operations and takes the same time wherever the
  // compiler and the allocator put it, unlike a filter that does nothing.
  bench::MarkdownReporter reporter(
      suite, {.section = "Filters", .row = "BiquadFilter notch 0.25, order 2", .column = "real"});
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return reporter.failed() ? 1 : 0;
}

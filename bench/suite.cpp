// SPDX-License-Identifier: MIT
#include <bench/suite.h>

#include <utility>

namespace bench {

void Suite::add(Section section) { sections_.push_back(std::move(section)); }

void Suite::add(const Figure& figure, std::function<void(benchmark::State&)> measure,
                benchmark::IterationCount iterations) {
  figures_.push_back(figure);
  auto* registered = benchmark::RegisterBenchmark(name(figure).c_str(), std::move(measure));
  if (iterations != 0) registered->Iterations(iterations);
}

std::string Suite::name(const Figure& figure) {
  return figure.section + "/" + figure.row + "/" + figure.column;
}

}  // namespace bench

// SPDX-License-Identifier: MIT
#include <zephly/dsp/multi_filter.h>

#include <utility>

MultiFilter::~MultiFilter() {
  // The order in which a vector destroys its elements is unspecified.
  for (auto& filter : filters) filter.reset();
}

void MultiFilter::addFilter(Filter* f) {
  std::unique_ptr<Filter> owned(f);
  filters.push_back(std::move(owned));
}

double MultiFilter::process(double x) {
  Filter::process(x);
  double value = x;
  for (const auto& filter : filters) value = filter->process(value);
  return value;
}

// SPDX-License-Identifier: MIT
#include <zephly/dsp/filter.h>

double Filter::process(double x) {
  lastInput_ = x;
  return x;
}

void Filter::reset() {}

// SPDX-License-Identifier: MIT
#include <zephly/dsp/low_cut_filter.h>

namespace {

int requireDelayLine(int delayLength) {
  Zephly::refuseNumbers("LowCutFilter: delay length", delayLength, 0, 0);
  return delayLength;
}

}  // namespace

LowCutFilter::LowCutFilter(int delayLength_, double Fc, int order)
    : lowPassFilter(BiquadLowpass, Fc, order, 0.707),
      delayLength(requireDelayLine(delayLength_)),
      delayLine(delayLength),
      writeIndex(delayLength - 1) {}

double LowCutFilter::process(double x) {
  delayLine[writeIndex] = x;
  // Read after the write: a line of one sample does not delay.
  const double delayed = delayLine[readIndex];
  const double slow = lowPass(x);
  const double out = delayed - slow;
  delayLineShift();
  return out;
}

double LowCutFilter::lowPass(double x) { return lowPassFilter.process(x); }

void LowCutFilter::delayLineShift() {
  readIndex = readIndex + 1 < delayLength ? readIndex + 1 : 0;
  writeIndex = writeIndex + 1 < delayLength ? writeIndex + 1 : 0;
}

#include <zephly/dsp/low_cut_filter.h>
namespace {

int requireDelayLine(int delayLength) {
  refuseNumbers("LowCutFilter: delay length", delayLength, 0, 0);
  return delayLength;
}

}  // namespace

LowCutFilter::LowCutFilter(int delayLength, double Fc, int order)
    : lowPassFilter_(BiquadLowpass, Fc, order, 0.707),
      delayLength_(requireDelayLine(delayLength)),
      delayLine_(delayLength),
      writeIndex_(delayLength - 1) {}

double LowCutFilter::process(double x) {
  delayLine_[writeIndex_] = x;
  // Read after the write: a line of one sample does not delay.
  const double delayed = delayLine_[readIndex_];
  const double slow = lowPass(x);
  const double out = delayed - slow;
  delayLineShift();
  return out;
}

double LowCutFilter::lowPass(double x) { return lowPassFilter_.process(x); }

void LowCutFilter::delayLineShift() {
  readIndex_ = readIndex_ + 1 < delayLength_ ? readIndex_ + 1 : 0;
  writeIndex_ = writeIndex_ + 1 < delayLength_ ? writeIndex_ + 1 : 0;
}

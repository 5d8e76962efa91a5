# SPDX-License-Identifier: MIT
"""The detector of J. Pan and W. J. Tompkins, A Real-Time QRS Detection Algorithm, IEEE Transactions on
Biomedical Engineering 32(3):230-236, 1985, as the paper describes it, on SciPy.

    beats = detect(ecg, 360)  # seconds

The paper halves the thresholds while the rhythm is irregular. halved=False leaves that out.
"""

import numpy as np
from scipy import signal

RATE = 200  # samples per second, for which the paper gives its filters
LOW_PASS = np.convolve(np.ones(6), np.ones(6)) / 36  # (1 - z^-6)^2 / (1 - z^-1)^2
HIGH_PASS = -np.ones(32) / 32  # z^-16 less the mean of 32 samples
HIGH_PASS[16] += 1
DERIVATIVE = np.array([2, 1, 0, -1, -2]) / 8
BAND_DELAY = 5 + 16  # samples
REFRACTORY = RATE // 5
T_WAVE = int(0.36 * RATE)
WINDOW = 30  # samples: 150 ms
LEARNING = 2 * RATE


class Levels:
    """The running estimates of signal and noise peaks, and the two thresholds between them."""

    def __init__(self, learnt):
        self.signal = learnt.max() / 3
        self.noise = learnt.mean() / 2

    def threshold(self, irregular):
        first = self.noise + 0.25 * (self.signal - self.noise)
        return first / 2 if irregular else first

    def beat(self, peak, weight=0.125):
        self.signal += weight * (peak - self.signal)

    def other(self, peak):
        self.noise += 0.125 * (peak - self.noise)


class Rhythm:
    """The averages of the last eight intervals, and of the last eight of regular length."""

    def __init__(self):
        self.all = []
        self.regular = []

    def add(self, interval):
        self.all = (self.all + [interval])[-8:]
        if not self.regular or self.low() <= interval <= self.high():
            self.regular = (self.regular + [interval])[-8:]

    def mean(self):
        return np.mean(self.regular)

    def low(self):
        return 0.92 * self.mean()

    def high(self):
        return 1.16 * self.mean()

    def irregular(self):
        return bool(self.all) and any(not self.low() <= one <= self.high() for one in self.all)

    def overdue(self, waited):
        return bool(self.regular) and waited > 1.66 * self.mean()


def detect(ecg, rate, halved=True):
    at_rate = signal.resample_poly(np.asarray(ecg, float) - np.mean(ecg), RATE, int(rate))
    band = signal.lfilter(HIGH_PASS, 1, signal.lfilter(LOW_PASS, 1, at_rate))
    slope = signal.lfilter(DERIVATIVE, 1, band)
    integrated = signal.lfilter(np.ones(WINDOW) / WINDOW, 1, slope**2)
    peaks, _ = signal.find_peaks(integrated, distance=REFRACTORY)

    # The peak of the band-passed signal and the steepest slope that belong to a peak of the integral.
    def around(peak):
        begin = max(0, peak - WINDOW - 2)
        at = begin + int(np.argmax(np.abs(band[begin : peak + 1])))
        return at, abs(band[at]), np.abs(slope[begin : peak + 1]).max()

    of_integral = Levels(integrated[:LEARNING])
    of_band = Levels(np.abs(band[:LEARNING]))
    rhythm = Rhythm()
    found = []  # peak of the integral, peak of the band, steepest slope
    rejected = []

    def accept(peak, at, steepest):
        if found:
            rhythm.add(peak - found[-1][0])
        found.append((peak, at, steepest))
        rejected.clear()

    def search_back(now):
        if not found or not rhythm.overdue(now - found[-1][0]):
            return
        irregular = halved and rhythm.irregular()
        candidates = [
            one
            for one in rejected
            if one - found[-1][0] > REFRACTORY
            and integrated[one] > of_integral.threshold(irregular) / 2
            and around(one)[1] > of_band.threshold(irregular) / 2
        ]
        if candidates:
            best = max(candidates, key=lambda one: integrated[one])
            at, height, steepest = around(best)
            of_integral.beat(integrated[best], 0.25)
            of_band.beat(height, 0.25)
            later = [one for one in rejected if one > best]
            accept(best, at, steepest)
            rejected.extend(later)

    for peak in peaks:
        search_back(peak)
        at, height, steepest = around(peak)
        if found and peak - found[-1][0] <= REFRACTORY:
            continue
        irregular = halved and rhythm.irregular()
        is_beat = integrated[peak] > of_integral.threshold(irregular) and height > of_band.threshold(irregular)
        if is_beat and found and peak - found[-1][0] < T_WAVE and steepest < found[-1][2] / 2:
            is_beat = False
        if is_beat:
            of_integral.beat(integrated[peak])
            of_band.beat(height)
            accept(peak, at, steepest)
        else:
            of_integral.other(integrated[peak])
            of_band.other(height)
            rejected.append(peak)
    return np.array([(at - BAND_DELAY) / RATE for _, at, _ in found])

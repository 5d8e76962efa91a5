#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The chains and filters beside SciPy, bottleneck and pandas: the same samples, results compared, then timed in turn.

    peers.py SAMPLES_FILE kit       those of the kit
    peers.py SAMPLES_FILE offline   those for whole recordings

SAMPLES_FILE is that of zephly_peers. Prints rows of a Markdown table; exit code 1 when results differ.
"""

import statistics
import sys
import time
import warnings

import numpy

warnings.filterwarnings("ignore", message="A NumPy version")  # SciPy's, of the NumPy that Debian ships beside it
import bottleneck
import pandas
import scipy
from scipy import ndimage, signal

import zephly
import zephly_stages

ROUNDS = 7
SCIPY = f"SciPy {scipy.__version__}"


# ---- the same in SciPy


def sections(kind, Fc, order, Q):
    """order / 2 equal second-order sections, by the bilinear transform of the analogue prototype."""
    k = numpy.tan(numpy.pi * Fc)
    analogue = {"low": [0, 0, 1], "high": [1, 0, 0], "notch": [1, 0, 1]}[kind]
    b, a = signal.bilinear(analogue, [1, 1 / Q, 1], fs=1 / (2 * k))
    return numpy.tile(numpy.concatenate([b / a[0], a / a[0]]), (order // 2, 1))


def past_extreme(filter, samples, size):
    """Over the latest `size` samples, with zeros before the first."""
    return filter(samples, size, mode="constant", cval=0.0, origin=(size - 1) // 2)


def normalized(samples, size):
    """0..1 by the largest magnitude of the latest `size` samples."""
    largest = past_extreme(ndimage.maximum_filter1d, numpy.abs(samples), size)
    return numpy.divide(samples + largest, 2 * largest, out=numpy.zeros_like(samples), where=largest != 0)


def past_median(samples, size):
    """The mean of the two values above the middle of the latest `size` samples, zeros before the first."""
    origin = (size - 1) // 2
    ranks = [ndimage.rank_filter(samples, rank, size, mode="constant", origin=origin) for rank in (size // 2, size // 2 + 1)]
    return (ranks[0] + ranks[1]) / 2


def pandas_median(samples, size):
    """The same by pandas, whose quantile 'midpoint' takes the mean of the two values beside its place."""
    padded = pandas.Series(numpy.concatenate([numpy.zeros(size - 1), samples]))
    place = (size // 2 + 0.5) / (size - 1)
    return padded.rolling(size).quantile(place, interpolation="midpoint").to_numpy()[size - 1 :]


ECG_SECTIONS = numpy.concatenate(
    [
        sections("notch", 0.1, 4, 5.0),
        sections("notch", 0.12, 4, 5.0),
        sections("notch", 0.2, 2, 15.0),
        sections("notch", 0.25, 2, 1.0),
        sections("low", 0.1, 8, 1.0),
    ]
)
LOW_CUT = sections("low", 0.004, 4, 0.707)
BREATH_NOTCHES = numpy.concatenate([sections("notch", 0.1, 4, 5.0), sections("notch", 0.25, 2, 1.0)])
BREATH_PASSES = numpy.concatenate([sections("low", 0.004, 8, 0.707), sections("high", 8e-5, 2, 0.707)])


def scipy_ecg(samples):
    cleaned = signal.sosfilt(ECG_SECTIONS, samples.astype(float))
    delayed = numpy.concatenate([numpy.zeros(109), cleaned[:-109]])
    return normalized(delayed - signal.sosfilt(LOW_CUT, cleaned), 1000).astype(numpy.float32)


def scipy_respiration(samples, median=past_median):
    smooth = median(signal.sosfilt(BREATH_NOTCHES, samples.astype(float)), 300)
    return normalized(signal.sosfilt(BREATH_PASSES, smooth), 5000).astype(numpy.float32)


# ---- timing


def nanoseconds_per_sample(run, samples):
    begin = time.process_time()
    run(samples)
    return (time.process_time() - begin) * 1e9 / samples.size


def hold(task, peer, ours, theirs, samples, tolerance, skipped=0):
    """One row. False when results differ, the first `skipped` aside, by more than `tolerance`."""
    difference = numpy.abs(ours(samples)[skipped:].astype(float) - theirs(samples)[skipped:]).max()
    pairs = [(nanoseconds_per_sample(ours, samples), nanoseconds_per_sample(theirs, samples)) for _ in range(ROUNDS)]
    mine, other = (statistics.median(column) for column in zip(*pairs))
    print(f"| {task} | {peer} | {mine:.1f} | {other:.1f} | {other / mine:.2f} | {difference:.1e} ({tolerance:.0e}) |", flush=True)
    if difference <= tolerance:
        return True
    print(f"error: {task}: results differ by {difference:g}", file=sys.stderr)
    return False


def in_pieces(process, size):
    """The samples handed over `size` at a time."""

    def run(samples):
        return numpy.concatenate([process(samples[first : first + size]) for first in range(0, samples.size, size)])

    return run


def one_by_one(process):
    def run(samples):
        return numpy.array([process(sample) for sample in samples.tolist()])

    return run


def scipy_stream(rows, size):
    """sosfilt on pieces, with the state kept: how a stream is filtered with it."""

    def run(samples):
        state = numpy.zeros((len(rows), 2))
        results = []
        for first in range(0, samples.size, size):
            piece, state = signal.sosfilt(rows, samples[first : first + size], zi=state)
            results.append(piece)
        return numpy.concatenate(results)

    return run


def low_pass():
    return zephly.BiquadFilter(zephly.BiquadLowpass, 0.1, 8, 1.0).process


def textbook_median(samples):
    """bottleneck's, whose first 299 results are of what there is."""
    return bottleneck.move_median(samples, 300, min_count=1)


def shared_median(samples):
    """What bottleneck gives, by ndimage: the mean of the two values around the middle."""
    ranks = [ndimage.rank_filter(samples, rank, 300, mode="constant", origin=149) for rank in (149, 150)]
    return (ranks[0] + ranks[1]) / 2


def hold_filters(ecg, breath):
    rows = sections("low", 0.1, 8, 1.0)
    median = lambda samples: zephly.MedianFilter(300).process(samples)
    part = breath[:5000]
    passed = [
        hold("four sections, whole array", f"{SCIPY} sosfilt", lambda x: low_pass()(x), lambda x: signal.sosfilt(rows, x), ecg, 1e-11),
        hold("four sections, pieces of 6", f"{SCIPY} sosfilt, zi", lambda x: in_pieces(low_pass(), 6)(x), scipy_stream(rows, 6), ecg, 1e-11),
        hold("four sections, one by one", f"{SCIPY} sosfilt, zi", lambda x: one_by_one(low_pass())(x), scipy_stream(rows, 1), part, 1e-11),
        hold("median of 300", f"{SCIPY} rank_filter, twice", median, lambda x: past_median(x, 300), breath, 0),
        hold("median of 300", f"pandas {pandas.__version__} rolling quantile", median, lambda x: pandas_median(x, 300), breath, 1e-12),
    ]
    passed.append(hold_bottleneck(median, breath))
    for size, samples in ((1000, ecg), (5000, breath)):
        ours = lambda x, size=size: zephly.NormalizationFilter(size, True).process(x)
        theirs = lambda x, size=size: normalized(x, size)
        passed.append(hold(f"normalisation over {size}", f"{SCIPY} maximum_filter1d", ours, theirs, samples, 1e-12))
    return all(passed)


def hold_bottleneck(median, breath):
    """One rank lower, so its results are compared with SciPy's of that rank, and its time with ours."""
    other = f"bottleneck {bottleneck.__version__} move_median"
    agreed = numpy.abs(textbook_median(breath)[299:] - shared_median(breath)[299:]).max() <= 1e-12
    if not agreed:
        print("error: bottleneck and SciPy disagree on the textbook median", file=sys.stderr)
    pairs = [(nanoseconds_per_sample(median, breath), nanoseconds_per_sample(textbook_median, breath)) for _ in range(ROUNDS)]
    mine, peer = (statistics.median(column) for column in zip(*pairs))
    print(f"| median of 300 | {other} | {mine:.1f} | {peer:.1f} | {peer / mine:.2f} | one rank lower |", flush=True)
    return agreed


def hold_offline(ecg, breath):
    rows = sections("low", 0.1, 8, 1.0)
    median = zephly_stages.median
    wide_ecg, wide_breath = ecg.astype(float), breath.astype(float)
    whole_ecg = lambda samples: zephly.offline.Ecg().process(samples)
    whole_breath = lambda samples: zephly.offline.Respiration().process(samples)[0]
    by_pandas = lambda samples: scipy_respiration(samples, pandas_median)
    engine_ecg = lambda samples: zephly.Engine().processECG(samples)
    engine_breath = lambda samples: zephly.Engine().processRespiration(samples)
    passed = [
        hold("four sections, whole array", f"{SCIPY} sosfilt", zephly_stages.low_pass, lambda x: signal.sosfilt(rows, x), wide_ecg, 1e-11),
        hold("median of 300", f"{SCIPY} rank_filter, twice", median, lambda x: past_median(x, 300), wide_breath, 0),
        hold("median of 300", f"pandas {pandas.__version__} rolling quantile", median, lambda x: pandas_median(x, 300), wide_breath, 1e-12),
        hold_bottleneck(median, wide_breath),
        # Ours is rounded to float32.
        hold("normalisation over 1000", f"{SCIPY} maximum_filter1d", zephly_stages.normalized_1000, lambda x: normalized(x, 1000), wide_ecg, 1e-7),
        hold("normalisation over 5000", f"{SCIPY} maximum_filter1d", zephly_stages.normalized_5000, lambda x: normalized(x, 5000), wide_breath, 1e-7),
        hold("ECG chain", SCIPY, whole_ecg, scipy_ecg, ecg, 2e-5, skipped=1000),
        hold("respiration chain, and contact", SCIPY, whole_breath, scipy_respiration, breath, 1e-6, skipped=1000),
        hold("respiration chain, and contact", "SciPy, median by pandas", whole_breath, by_pandas, breath, 1e-6, skipped=1000),
        hold("ECG chain", "the kit", whole_ecg, engine_ecg, ecg, 0),
        hold("respiration chain, and contact", "the kit, without contact", whole_breath, engine_breath, breath, 0),
    ]
    return all(passed)


def hold_chains(ecg, breath):
    engine_ecg = lambda samples: zephly.Engine().processECG(samples)
    engine_breath = lambda samples: zephly.Engine().processRespiration(samples)
    by_pandas = lambda samples: scipy_respiration(samples, pandas_median)
    passed = [
        # Ours rounds to float32 after every stage. While the filters start, that is large beside the signal.
        hold("ECG chain", SCIPY, engine_ecg, scipy_ecg, ecg, 2e-5, skipped=1000),
        hold("respiration chain", SCIPY, engine_breath, scipy_respiration, breath, 1e-6, skipped=1000),
        hold("respiration chain", "SciPy, median by pandas", engine_breath, by_pandas, breath, 1e-6, skipped=1000),
    ]
    for task, process, samples in (
        ("ECG chain", lambda: zephly.Engine().processECG, ecg),
        ("respiration chain", lambda: zephly.Engine().processRespiration, breath),
    ):
        whole = lambda x, process=process: process()(x)
        pieces = lambda x, process=process: in_pieces(process(), 6)(x)
        single = lambda x, process=process: one_by_one(process())(x).astype(numpy.float32)
        passed.append(hold(task, "ours, six samples a call", whole, pieces, samples, 0))
        passed.append(hold(task, "ours, one sample a call", whole, single, samples, 0))
    return all(passed)


def main():
    if len(sys.argv) != 3 or sys.argv[2] not in ("kit", "offline"):
        sys.exit("usage: peers.py SAMPLES_FILE kit|offline")
    ecg, breath = numpy.fromfile(sys.argv[1], numpy.float32).reshape(2, -1)
    if sys.argv[2] == "offline":
        same = hold_offline(ecg, breath)
    else:
        same = hold_filters(ecg.astype(float), breath.astype(float))
        same = hold_chains(ecg, breath) and same
    sys.exit(0 if same else 1)


if __name__ == "__main__":
    main()

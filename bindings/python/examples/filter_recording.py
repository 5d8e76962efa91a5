#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Filters a recording with the engine and draws it, raw and filtered.

    filter_recording.py picture.png                        ten seconds of the simulated strap
    filter_recording.py picture.png --csv walk/ecg.csv     what `zephly export --csv walk` has written

Of a CSV file the column --column is taken, ECG in the strap's own scale at 500 samples a second. Times are those of the
column time_s, and a sample with a number in the column gap_s follows a gap: nothing is drawn there.
"""

import argparse
import csv
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as pyplot
import numpy

import zephly

RATE = 500  # samples a second
DELAY = 109  # samples by which the chain's low cut delays the ECG; its other filters add some more


def recorded(seconds):
    """Raw ECG samples of a simulated strap."""

    class Application:
        samples = []

        def didReceiveECG(self, sample):
            self.samples.append(sample)

    strap = zephly.SimulatedStrap(zephly.MainQueue(), speed=None, plan="quiet")
    session = zephly.Zephly(Application(), strap)
    while len(Application.samples) < seconds * RATE:
        strap.advance(1)
    session.close()
    return numpy.array(Application.samples[: seconds * RATE], numpy.float32)


def read_csv(path, column):
    """The times and values of a column, and whether a gap is before each sample."""
    with open(path, newline="") as file:
        rows = csv.DictReader(file)
        if column not in (rows.fieldnames or []):
            raise ValueError(f"no column {column}, there are: {', '.join(rows.fieldnames or [])}")
        table = [(row.get("time_s"), row[column], bool(row.get("gap_s"))) for row in rows]
    if not table:
        raise ValueError("no samples")
    times, samples, gaps = zip(*table)
    if times[0] is None:
        return even_times(len(table)), numpy.array(samples, numpy.float32), numpy.array(gaps)
    return numpy.array(times, float), numpy.array(samples, numpy.float32), numpy.array(gaps)


def even_times(count):
    return numpy.arange(count) / RATE


def broken_line(time, values, gaps):
    """The same with a NaN in each gap, where a line is interrupted."""
    places = numpy.flatnonzero(gaps)
    return numpy.insert(time, places, numpy.nan), numpy.insert(values, places, numpy.nan)


def filtered_line(time, raw, gaps):
    """The engine continues after a gap, as in a session. Each result has the time of the sample that it shows."""
    filtered = zephly.Engine().processECG(raw)
    count = max(raw.size - DELAY, 0)
    return broken_line(time[:count], filtered[DELAY:], gaps[:count])


def draw(path, time, raw, gaps):
    figure, (above, below) = pyplot.subplots(2, sharex=True, figsize=(10, 5), constrained_layout=True)
    above.plot(*broken_line(time, raw, gaps), linewidth=0.8)
    above.set_ylabel("raw (full scale ±2.42)")
    below.plot(*filtered_line(time, raw, gaps), linewidth=0.8, color="tab:green")
    below.set_ylabel("filtered, 0 to 1")
    below.set_ylim(0, 1)
    below.set_xlim(time[0], time[-1] + 1 / RATE)
    below.set_xlabel("time (s)")
    figure.savefig(path, dpi=100)


def main():
    parser = argparse.ArgumentParser(description="Filters a recording with the engine and draws it.")
    parser.add_argument("picture", help="the PNG file to write")
    parser.add_argument("--csv", help="a CSV file; without one, the simulated strap is recorded")
    parser.add_argument("--column", default="ecg_mV", help="its column with the raw samples (default: %(default)s)")
    arguments = parser.parse_args()
    try:
        if arguments.csv:
            time, raw, gaps = read_csv(arguments.csv, arguments.column)
        else:
            raw = recorded(seconds=10)
            time, gaps = even_times(raw.size), numpy.zeros(raw.size, bool)
        draw(arguments.picture, time, raw, gaps)
    except (OSError, ValueError) as error:
        sys.exit(f"filter_recording: {error}")
    count = int(gaps.sum())
    interrupted = f", {count} gap{'s' if count > 1 else ''}" if count else ""
    print(f"{raw.size} samples, {raw.size / RATE:g} s{interrupted}, drawn to {arguments.picture}")


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Filters a recording with the engine and draws it, raw and filtered.

    filter_recording.py picture.png                        ten seconds of the simulated strap
    filter_recording.py picture.png --csv walk/ecg.csv     what `zephly export --csv walk` has written

Of a CSV file the column --column is taken, ECG in the strap's own scale at 500 samples a second.
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
    with open(path, newline="") as file:
        rows = csv.DictReader(file)
        if column not in (rows.fieldnames or []):
            raise ValueError(f"no column {column}, there are: {', '.join(rows.fieldnames or [])}")
        samples = numpy.array([float(row[column]) for row in rows], numpy.float32)
    if samples.size == 0:
        raise ValueError("no samples")
    return samples


def draw(path, raw, filtered):
    time = numpy.arange(raw.size) / RATE
    figure, (above, below) = pyplot.subplots(2, sharex=True, figsize=(10, 5), constrained_layout=True)
    above.plot(time, raw, linewidth=0.8)
    above.set_ylabel("raw (full scale ±2.42)")
    below.plot(time - DELAY / RATE, filtered, linewidth=0.8, color="tab:green")
    below.set_ylabel("filtered, 0 to 1")
    below.set_ylim(0, 1)
    below.set_xlim(0, time[-1])
    below.set_xlabel("time (s)")
    figure.savefig(path, dpi=100)


def main():
    parser = argparse.ArgumentParser(description="Filters a recording with the engine and draws it.")
    parser.add_argument("picture", help="the PNG file to write")
    parser.add_argument("--csv", help="a CSV file; without one, the simulated strap is recorded")
    parser.add_argument("--column", default="ecg_mV", help="its column with the raw samples (default: %(default)s)")
    arguments = parser.parse_args()
    try:
        raw = read_csv(arguments.csv, arguments.column) if arguments.csv else recorded(seconds=10)
        filtered = zephly.Engine().processECG(raw)
        draw(arguments.picture, raw, filtered)
    except (OSError, ValueError) as error:
        sys.exit(f"filter_recording: {error}")
    print(f"{raw.size} samples, {raw.size / RATE:g} s, drawn to {arguments.picture}")


if __name__ == "__main__":
    main()

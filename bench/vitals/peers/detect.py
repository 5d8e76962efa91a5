# SPDX-License-Identifier: MIT
"""Runs other detectors on WFDB records and writes what they find as annotation files.

    detect.py FOLDER OUTPUT

For each detector and each record 101.hea of FOLDER there is OUTPUT/DETECTOR/101.atr afterwards, and
OUTPUT/DETECTOR/seconds with the processor time of the detector for all of them. bench/vitals/score_files.cpp
compares them with the annotations in FOLDER. The first signal is read, as format 212 or 16.
"""

import functools
import pathlib
import struct
import sys
import time

import numpy as np
from mne.preprocessing.ecg import qrs_detector

import pan_tompkins


def read_signal(header):
    lines = [line.split() for line in header.read_text().splitlines() if line.strip() and line[0] != "#"]
    count, rate = int(lines[0][1]), float(lines[0][2].split("/")[0])
    name, kind, gain, zero = lines[1][0], lines[1][1], lines[1][2], lines[1][4]
    data = np.frombuffer((header.parent / name).read_bytes(), np.uint8)
    if kind == "212":
        triples = data[: len(data) // 3 * 3].reshape(-1, 3).astype(np.int32)
        first = triples[:, 0] | (triples[:, 1] & 0x0F) << 8
        second = triples[:, 2] | (triples[:, 1] & 0xF0) << 4
        steps = np.stack([first, second], axis=1).ravel()
        steps = np.where(steps > 2047, steps - 4096, steps)
    elif kind == "16":
        steps = data.view("<i2").astype(np.int32)
    else:
        sys.exit(f"error: {header}: format 16 or 212 expected, found {kind}")
    scale = float(gain.split("/")[0].split("(")[0]) or 200
    return (steps[::count] - int(zero)) / scale, rate


def annotation_file(beats, rate):
    """Beats (N) in the MIT format: words of 6 bits of code and 10 bits of time."""
    data, last = b"", 0
    for sample in sorted(max(0, round(beat * rate)) for beat in beats):
        step = sample - last
        if step > 1023:
            data += struct.pack("<HHH", 59 << 10, step >> 16, step & 0xFFFF)
            step = 0
        data += struct.pack("<H", 1 << 10 | step)
        last = sample
    return data + b"\0\0"


def find_with_mne(ecg, rate):
    return np.asarray(qrs_detector(rate, ecg, verbose=False)) / rate


DETECTORS = {
    "pan-tompkins": pan_tompkins.detect,
    "pan-tompkins-unhalved": functools.partial(pan_tompkins.detect, halved=False),
    "mne": find_with_mne,
}


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: detect.py FOLDER OUTPUT")
    headers = sorted(pathlib.Path(sys.argv[1]).glob("*.hea"))
    for name, find in DETECTORS.items():
        folder = pathlib.Path(sys.argv[2]) / name
        folder.mkdir(parents=True, exist_ok=True)
        seconds = 0.0
        for header in headers:
            ecg, rate = read_signal(header)
            begin = time.process_time()
            beats = find(ecg, rate)
            seconds += time.process_time() - begin
            (folder / f"{header.stem}.atr").write_bytes(annotation_file(beats, rate))
        (folder / "seconds").write_text(f"{seconds}\n")


if __name__ == "__main__":
    main()

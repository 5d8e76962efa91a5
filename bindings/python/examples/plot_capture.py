#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Draws a capture of `zephly record`: its last seconds of ECG, and respiration, temperature, gaps and repetitions.

    plot_capture.py walk.zcap picture.png

Exit code: 0; 1 when the file is cut, damaged or not a capture. Everything before the damage is drawn.
"""

import argparse
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as pyplot

import zephly

ECG_SECONDS = 5


def draw(capture, path):
    figure, (ecg, respiration, temperature) = pyplot.subplots(3, figsize=(10, 7), constrained_layout=True)
    # The samples of the last seconds: arrays are selected by time.
    time = capture.ecg["time_s"]
    late = time > time[-1] - ECG_SECONDS if time.size else slice(0)
    ecg.plot(time[late], capture.ecg["ecg_mV"][late], linewidth=0.8)
    ecg.set_ylabel("ECG (mV)")
    respiration.plot(capture.respiration["processed_time_s"], capture.respiration["processed"], linewidth=0.8)
    respiration.set_ylabel("respiration, 0 to 1")
    temperature.plot(capture.temperature["time_s"], capture.temperature["skin_degC"])
    temperature.set_ylabel("skin (°C)")
    temperature.set_xlabel("seconds since the session began")
    for gap in capture.gaps:
        if gap.stream == "respiration":
            respiration.axvspan(gap.time, gap.time + gap.duration, alpha=0.2)
    for times in capture.repetitions.values():
        for time in times:
            temperature.axvline(time, linewidth=0.5, color="tab:green")
    for axes in (respiration, temperature):
        axes.set_xlim(0, capture.duration)
    figure.savefig(path, dpi=100)


def main():
    parser = argparse.ArgumentParser(description="Draws a capture of `zephly record`.")
    parser.add_argument("capture", help="the capture (.zcap)")
    parser.add_argument("picture", help="the PNG file to write")
    arguments = parser.parse_args()
    try:
        capture = zephly.Capture(arguments.capture)
        draw(capture, arguments.picture)
    except OSError as error:  # CaptureError is one
        sys.exit(f"plot_capture: {error}")
    for damage in capture.damage:
        print(f"plot_capture: {damage}", file=sys.stderr)
    print(f"{capture.duration:.0f} s, {len(capture.events)} events, drawn to {arguments.picture}")
    return 1 if capture.damage else 0


if __name__ == "__main__":
    sys.exit(main())

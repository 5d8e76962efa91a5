# SPDX-License-Identifier: MIT
"""Draws the pictures of docs/streams from the tables that zephly_figures has written.

    draw.py DATA PICTURES

The same tables give the same bytes with the same matplotlib: no date, fixed identifiers. Each picture
names the tables it was drawn from (scripts/check figures reads that). The background is part of the
picture, so that it reads the same on a dark page and on a light one.
"""

import csv
import hashlib
import pathlib
import sys

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402

BLUE, ORANGE, GREEN, PURPLE, GREY, RED = "#0b62a4", "#c4520a", "#2a7d3a", "#7a3e9d", "#8a8a8a", "#b5202e"

plt.rcParams.update({
    "svg.fonttype": "none",
    "svg.hashsalt": "zephly",
    "font.family": "sans-serif",
    "font.sans-serif": ["DejaVu Sans", "Verdana", "Arial"],
    "font.size": 10,
    "axes.titlesize": 11,
    "axes.titlelocation": "left",
    "axes.grid": True,
    "grid.color": "#d9d9d4",
    "axes.spines.top": False,
    "axes.spines.right": False,
    "figure.facecolor": "#fcfcfa",
    "axes.facecolor": "#fcfcfa",
    "legend.framealpha": 0.9,
    "legend.fontsize": 9,
    "lines.linewidth": 1.6,
    "path.simplify_threshold": 0.3,
})

WIDTH = 8.4  # inches


class Data:
    """The tables, by column; remembers which of them the present picture has used."""

    def __init__(self, folder):
        self.folder = folder
        self.used = set()

    def __call__(self, name):
        self.used.add(f"{name}.csv")
        with (self.folder / f"{name}.csv").open(newline="") as file:
            rows = list(csv.reader(file))
        columns = zip(*([float(field) if field else float("nan") for field in row] for row in rows[1:]))
        return {head: list(column) for head, column in zip(rows[0], columns)}

    def sources(self):
        digests = (f"{name}:{hashlib.sha256((self.folder / name).read_bytes()).hexdigest()[:16]}"
                   for name in sorted(self.used))
        self.used = set()
        return "drawn from: " + " ".join(digests)


def frequency_axis(axes, first, last, ticks):
    axes.set_xscale("log")
    axes.set_xlim(first, last)
    axes.set_xticks(ticks)
    axes.set_xticks([], minor=True)
    axes.set_xticklabels([f"{tick:g}" for tick in ticks])


def panels(count, height, share=True):
    figure, axes = plt.subplots(count, 1, figsize=(WIDTH, height), sharex=share, layout="constrained")
    return figure, axes


def ecg_response(data):
    table = data("ecg_response")
    figure, (gain, delay) = panels(2, 6.4)
    f = table["frequency_Hz"]
    gain.plot(f, table["notches_dB"], color=ORANGE, linewidth=1, label="four notches")
    gain.plot(f, table["low_pass_dB"], color=GREEN, linewidth=1, label="low-pass")
    gain.plot(f, table["low_cut_dB"], color=PURPLE, linewidth=1, label="low cut")
    gain.plot(f, table["all_dB"], color=BLUE, label="all, before normalisation")
    gain.set_ylim(-90, 10)
    gain.set_ylabel("gain in dB")
    gain.set_title("ECG chain, 500 samples a second")
    gain.legend(loc="lower left")
    delay.plot(f, table["delay_ms"], color=BLUE)
    delay.set_ylim(200, 380)
    delay.set_ylabel("group delay in ms")
    delay.set_xlabel("frequency in Hz")
    frequency_axis(delay, 0.1, 250, [0.1, 0.5, 1, 2, 5, 10, 20, 50, 100, 250])
    return figure


def ecg_step(data):
    table = data("ecg_step")
    figure, (step, impulse) = panels(2, 5)
    t = [1000 * time for time in table["time_s"]]
    step.plot(t, table["step"], color=BLUE)
    step.set_ylabel("answer to a step of 1")
    step.set_title("ECG chain before normalisation")
    impulse.plot(t, table["impulse"], color=BLUE)
    impulse.set_ylabel("answer to one sample of 1")
    impulse.set_xlabel("time after the step in ms")
    impulse.set_xlim(-50, 1050)
    return figure


def ecg_start(data):
    table = data("ecg_start")
    figure, (raw, filtered) = panels(2, 5)
    raw.plot(table["time_s"], table["raw"], color=ORANGE, linewidth=1)
    raw.set_ylabel("sample as sent (±2.42)")
    raw.set_title("ECG chain from its first sample on; 20 ms of saturation at 5 s (drawn heart, 75 beats a minute)")
    filtered.plot(table["time_s"], table["filtered"], color=BLUE, linewidth=1)
    filtered.set_ylabel("processECG (0 to 1)")
    filtered.set_xlabel("time in s")
    filtered.set_xlim(0, 8.5)
    return figure


def respiration_response(data):
    table = data("respiration_response")
    sine = data("respiration_sine")
    figure, (gain, delay) = panels(2, 6.4)
    f = table["frequency_Hz"]
    gain.plot(f, table["notches_dB"], color=ORANGE, linewidth=1, label="two notches")
    gain.plot(f, table["low_pass_dB"], color=GREEN, linewidth=1, label="low-pass")
    gain.plot(f, table["high_pass_dB"], color=PURPLE, linewidth=1, label="high-pass")
    gain.plot(f, table["all_dB"], color=BLUE, label="linear stages together")
    gain.plot(sine["frequency_Hz"], sine["gain_dB"], ".", color=RED, markersize=4,
              label="with the median, measured with sines")
    gain.set_ylim(-90, 10)
    gain.set_ylabel("gain in dB")
    gain.set_title("Respiration chain, 500 samples a second")
    gain.legend(loc="lower left")
    delay.plot(f, table["delay_s"], color=BLUE)
    delay.set_ylim(0, 8)
    delay.set_ylabel("group delay in s")
    delay.set_xlabel("frequency in Hz")
    frequency_axis(delay, 0.005, 250, [0.005, 0.02, 0.05, 0.1, 0.25, 0.5, 1, 2, 5, 10, 50, 125])
    return figure


def respiration_median(data):
    table = data("respiration_median")
    figure, axes = plt.subplots(figsize=(WIDTH, 3), layout="constrained")
    axes.plot(table["time_s"], table["input"], color=ORANGE, linewidth=1, label="input")
    axes.plot(table["time_s"], table["median"], color=BLUE, label="median of 300 samples")
    for time, text in ((0.5, "0.1 s"), (1.5, "0.25 s"), (2.5, "0.35 s"), (4, "0.5 s"), (7, "0.1 s"), (8, "0.35 s")):
        axes.annotate(text, (time, 1.06), fontsize=8, color="#444444")
    axes.set_ylim(-0.1, 1.45)
    axes.set_xlim(0, 9.5)
    axes.set_xlabel("time in s")
    axes.set_ylabel("value")
    axes.set_title("The median: what is shorter than 0.3 s does not come through")
    axes.legend(loc="upper left", ncols=2)
    return figure


def respiration_step(data):
    table = data("respiration_step")
    figure, (before, result) = panels(2, 5)
    before.plot(table["time_s"], table["before_normalization"], color=BLUE)
    before.set_ylabel("before normalisation")
    before.set_title("Respiration chain: answer to a step of 1 (the electrodes have moved)")
    result.plot(table["time_s"], table["result"], color=BLUE)
    result.axhline(0.5, color=GREY, linewidth=0.8)
    result.set_ylabel("result (0 to 1)")
    result.set_xlabel("time after the step in s")
    result.set_xlim(-1, 30)
    return figure


def respiration_start(data):
    table = data("respiration_start")
    figure, (raw, result) = panels(2, 5)
    raw.plot(table["time_s"], table["raw"], color=ORANGE)
    raw.set_ylabel("sample as sent (±2.42)")
    raw.set_title("Respiration chain from its first sample on (a sine of 15 breaths a minute)")
    result.plot(table["time_s"], table["result"], color=BLUE)
    result.axhline(0.5, color=GREY, linewidth=0.8)
    result.set_ylabel("result (0 to 1)")
    result.set_xlabel("time in s")
    result.set_xlim(0, 40)
    return figure


def contact(data):
    table = data("contact")
    t = table["time_s"]
    figure, (raw, result) = panels(2, 5.4)
    raw.plot(t, table["raw"], color=ORANGE)
    raw.set_ylabel("sample as sent (±2.42)")
    raw.set_title("Electrodes off from 30 to 45 s")
    result.plot(t, table["without_resets"], color=GREY, linewidth=1, label="without the resets")
    result.plot(t, table["respiration"], color=BLUE, label="as the session gets it")
    result.set_ylabel("result (0 to 1)")
    result.set_xlabel("time in s (of the processor too)")
    result.set_xlim(0, 90)
    for axes in (raw, result):
        off = [1 - value for value in table["contact"]]
        axes.fill_between(t, 0, 1, where=[value > 0.5 for value in off], color=RED, alpha=0.12, linewidth=0,
                          transform=axes.get_xaxis_transform(), label="no contact" if axes is result else None)
    result.axvline(34.2, color=RED, linewidth=0.8, linestyle=":")
    result.annotate("resets", (34.6, 0.93), fontsize=8, color=RED)
    result.set_ylim(-0.05, 1.4)
    result.legend(loc="upper center", ncols=3)
    return figure


def motion_response(data):
    table = data("motion_response")
    figure, (gain, phase) = panels(2, 5.4)
    f = table["frequency_Hz"]
    gain.plot(f, table["gain_dB"], color=BLUE)
    gain.set_ylim(-70, 10)
    gain.set_ylabel("gain in dB")
    gain.set_title("Displacement of the exercise detector, as a part of the true one (30 samples a second)")
    phase.plot(f, table["phase_deg"], ".", color=BLUE, markersize=3)
    phase.set_yticks([-180, -90, 0, 90, 180])
    phase.set_ylabel("phase in degrees")
    phase.set_xlabel("frequency in Hz")
    frequency_axis(phase, 0.01, 10, [0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10])
    return figure


def motion_push_ups(data):
    table = data("motion_push_ups")
    t = table["time_s"]
    figure, (height, displacement) = panels(2, 5)
    height.plot(t, [100 * value for value in table["height_m"]], color=ORANGE)
    height.set_ylabel("true height in cm")
    height.set_title("Six push-ups of 35 cm, one every 2 s, and what the detector makes of them")
    shown = table["displacement_g_s2"]
    displacement.axhspan(-0.01, 0.01, color=GREY, alpha=0.25, linewidth=0, label="still")
    displacement.plot(t, shown, color=BLUE, label="displacement")
    counted = table["counted"]
    at = [n for n in range(1, len(counted)) if counted[n] > counted[n - 1]]
    displacement.plot([t[n] for n in at], [shown[n] for n in at], "s", color=RED, label="counted")
    displacement.set_ylabel("displacement in g·s²")
    displacement.set_xlabel("time in s")
    displacement.set_xlim(0, 19)
    displacement.legend(loc="lower right", ncols=3)
    return figure


def motion_threshold(data):
    table = data("motion_threshold")
    figure, axes = plt.subplots(figsize=(WIDTH, 3.2), layout="constrained")
    axes.plot(table["period_s"], table["depth_cm"], color=BLUE)
    axes.set_ylim(0, 120)
    axes.set_xscale("log")
    axes.set_xlim(0.3, 12)
    axes.set_xticks([0.3, 0.5, 1, 2, 3, 5, 10])
    axes.set_xticks([], minor=True)
    axes.set_xticklabels(["0.3", "0.5", "1", "2", "3", "5", "10"])
    axes.set_xlabel("time of one repetition in s")
    axes.set_ylabel("depth in cm")
    axes.set_title("The smallest movement of which five in six are counted (cosine, push-ups)")
    return figure


def temperature_settled(data):
    table = data("temperature_settled")
    figure, axes = plt.subplots(figsize=(WIDTH, 3.8), layout="constrained")
    for column, colour, label in (("at_ambient_15_C", GREEN, "15 °C around"), ("at_ambient_20_C", BLUE, "20 °C around"),
                                  ("at_ambient_25_C", ORANGE, "25 °C around")):
        axes.plot(table["skin_C"], table[column], color=colour, label=label)
    axes.axvline(35.8333, color=GREY, linewidth=0.8, linestyle=":")
    axes.set_xlim(26, 40)
    axes.set_xlabel("skin in °C")
    axes.set_ylabel("estimate in °C")
    axes.set_title("What processBodyTemperature says, after 20 equal readings")
    axes.legend(loc="upper left")
    return figure


def temperature_step(data):
    table = data("temperature_step")
    figure, (given, estimate) = panels(2, 4.6)
    given.step(table["time_s"], table["skin_C"], color=ORANGE, where="post", label="skin")
    given.step(table["time_s"], table["ambient_C"], color=GREEN, where="post", label="surroundings")
    given.set_ylabel("readings in °C")
    given.set_ylim(18, 37)
    given.set_title("Body temperature: a step of the skin (5 readings), then of the surroundings (20 readings)")
    given.legend(loc="center left")
    estimate.step(table["time_s"], table["estimate_C"], color=BLUE, where="post")
    estimate.set_ylabel("estimate in °C")
    estimate.set_xlabel("time in s (one reading a second)")
    estimate.set_xlim(0, 79)
    return figure


PICTURES = (ecg_response, ecg_step, ecg_start, respiration_response, respiration_median, respiration_step,
            respiration_start, contact, motion_response, motion_push_ups, motion_threshold, temperature_settled,
            temperature_step)


def main(data_folder, picture_folder):
    data = Data(data_folder)
    for draw in PICTURES:
        figure = draw(data)
        path = picture_folder / f"{draw.__name__}.svg"
        figure.savefig(path, metadata={"Date": None, "Creator": None, "Description": data.sources()})
        plt.close(figure)
        # Lines that end in a blank, as matplotlib writes them, are no good in a repository.
        path.write_text("\n".join(line.rstrip() for line in path.read_text().splitlines()) + "\n")
    print(f"figures: {len(PICTURES)} pictures in {picture_folder}")


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(*map(pathlib.Path, sys.argv[1:]))

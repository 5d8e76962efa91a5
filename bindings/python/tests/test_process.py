# SPDX-License-Identifier: MIT
"""signals.h5 of `zephly process`, read by h5py and by h5dump: the values of zephly.Capture and of the CSV files."""

import os
import subprocess
import time

import h5py
import numpy
import pytest

import zephly

PROGRAM = os.environ.get("ZEPHLY_PROGRAM")
STREAMS = ("ecg", "respiration", "temperature", "battery", "motion")


def run(*command):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    return done.stdout


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    """A folder with walk.zcap, a training of 100 s with lost links, and its results in out/walk."""
    assert PROGRAM, "ZEPHLY_PROGRAM does not name the program: run scripts/test bindings/python"
    folder = tmp_path_factory.mktemp("processed")
    run(PROGRAM, "record", folder / "walk.zcap", "--simulated", "--speed", "1000", "--duration", "100")
    run(PROGRAM, "process", folder / "walk.zcap", "--out", folder / "out", "--hdf5", "--csv")
    return folder


@pytest.fixture(scope="module")
def file(folder):
    with h5py.File(folder / "out" / "walk" / "signals.h5") as opened:
        yield opened


@pytest.fixture(scope="module")
def capture(folder):
    return zephly.Capture(folder / "walk.zcap")


def same_bits(left, right):
    assert left.dtype == right.dtype and left.shape == right.shape
    return left.tobytes() == right.tobytes()


def rows(folder, name):
    return numpy.genfromtxt(folder / "out" / "walk" / name, delimiter=",", names=True, dtype=None, encoding="utf-8")


@pytest.mark.parametrize("stream", STREAMS)
def test_streams_are_those_of_the_capture(file, capture, stream):
    arrays = getattr(capture, stream)
    group = file[stream]
    assert group.attrs["rate"] == {"ecg": 500, "respiration": 500, "temperature": 1, "battery": 0, "motion": 30}[stream]
    assert group["time"].attrs["units"] == b"ns"
    assert same_bits(group["time"][:] / 1e9, arrays["time_s"])
    assert len(group["time"]) > {"ecg": 40000, "respiration": 40000, "temperature": 90, "battery": 9, "motion": 2500}[stream]
    columns = [name for name in arrays if name not in ("time_s", "gap_s", "processed_time_s")]
    assert set(group) == {"time", "gap_sample", "gap_length", *columns} | ({"processed"} if stream == "ecg" else set())
    for name in columns:
        assert same_bits(group[name][:], arrays[name]), name
    gaps = numpy.full(len(group["time"]), numpy.nan)
    gaps[group["gap_sample"][:]] = group["gap_length"][:] / 1e9
    numpy.testing.assert_array_equal(gaps, arrays["gap_s"])
    assert len(group["gap_sample"]) > 0


def test_units_are_attributes(file):
    assert file["ecg/ecg_mV"].attrs["units"] == b"mV"
    assert file["temperature/body_estimate_degC"].attrs["units"] == b"degC"
    assert file["motion/ax_g"].attrs["units"] == b"g"
    assert file["battery/charge_percent"].attrs["units"] == b"percent"
    assert "units" not in file["respiration/raw"].attrs
    assert file["vitals/heart_rate"].attrs["units"] == b"1/min"


def test_the_ecg_is_filtered_by_the_kits_chain(file, capture):
    assert same_bits(file["ecg/processed"][:], zephly.ECGMultiBandpassFilter().process(capture.ecg["ecg_mV"]))


def test_the_file_says_when_the_session_began(file, capture):
    began = numpy.datetime64(int(file.attrs["began_unix_ns"]), "ns")
    assert began == capture.preamble["began"]
    assert file.attrs["began_utc"].decode() == str(began) + "Z"
    assert file.attrs["duration_ns"] / 1e9 == capture.duration
    assert file.attrs["layout"] == 1


def meanings(dataset):
    return dict((int(line.split(" ", 1)[0]), line.split(" ", 1)[1]) for line in dataset.attrs["values"].decode().splitlines())


def test_events_are_those_of_the_capture(file, capture):
    group = file["events"]
    kinds, streams = meanings(group["event"]), meanings(group["stream"])
    assert [kinds[code] for code in group["event"][:]] == [event.event for event in capture.events]
    assert [streams[code] for code in group["stream"][:]] == [event.stream or "none" for event in capture.events]
    assert list(group["time"][:] / 1e9) == [event.time for event in capture.events]
    durations = [None if ns == -1 else ns / 1e9 for ns in group["duration"][:]]
    assert durations == [event.duration for event in capture.events]
    assert group["duration"].attrs["missing"] == b"-1"


def test_vitals_are_those_of_the_csv_files(file, folder):
    beats = rows(folder, "beats.csv")
    group = file["beats"]
    numpy.testing.assert_allclose(group["time"][:] / 1e9, beats["time_s"], rtol=0, atol=1e-9)
    numpy.testing.assert_allclose(group["rr"][:], beats["rr_s"], rtol=0, atol=6e-7)
    numpy.testing.assert_allclose(group["quality"][:], beats["quality"], rtol=0, atol=6e-4)
    numpy.testing.assert_array_equal(group["amplitude"][:].astype(numpy.float32), beats["amplitude"].astype(numpy.float32))
    assert [meanings(group["class"])[code] for code in group["class"][:]] == list(beats["class"])
    numpy.testing.assert_array_equal(group["late"][:], beats["late"])
    assert len(beats) > 50

    breaths = rows(folder, "breaths.csv")
    group = file["breaths"]
    numpy.testing.assert_allclose(group["time"][:] / 1e9, breaths["time_s"], rtol=0, atol=1e-9)
    for name, column in (("duration", "duration_s"), ("depth", "depth"), ("quality", "quality"), ("derived", "derived")):
        numpy.testing.assert_allclose(group[name][:], breaths[column], rtol=0, atol=6e-4)
    assert len(breaths) > 5

    seconds = rows(folder, "vitals.csv")
    group = file["vitals"]
    numpy.testing.assert_array_equal(group["time"][:] // 10**9, seconds["time_s"])
    names = {"heart_rate": "heart_rate_per_min", "breathing_rate": "breathing_rate_per_min"}
    for name in group:
        if name in ("time", "contact"):
            continue
        numpy.testing.assert_allclose(group[name][:], seconds[names.get(name, name)], rtol=0, atol=6e-3)
    contact = numpy.array([-1 if value == "" else int(value) for value in seconds["contact"].astype(str)])
    numpy.testing.assert_array_equal(group["contact"][:], contact)
    assert len(seconds) > 90


def test_a_second_reader_finds_the_same(file, folder, tmp_path):
    """h5dump is a program of the HDF Group; h5py has the library's arrays in its own way."""
    for name in ("ecg/time", "ecg/ecg_mV", "respiration/processed", "beats/rr", "events/event"):
        raw = tmp_path / "raw"
        run("h5dump", "-d", f"/{name}", "-b", "LE", "-o", raw, folder / "out" / "walk" / "signals.h5")
        values = file[name][:]
        assert raw.read_bytes() == values.tobytes(), name


def test_datasets_are_chunked_and_compressed(file):
    dataset = file["ecg/ecg_mV"]
    assert dataset.chunks and dataset.compression == "gzip" and dataset.shuffle


def test_two_runs_write_the_same_bytes(folder):
    """The second begins in a later second, which times in the file would show."""
    first = (folder / "out" / "walk" / "signals.h5").read_bytes()
    age = time.time() - (folder / "out" / "walk" / "signals.h5").stat().st_mtime
    time.sleep(max(0, 1.1 - age))
    run(PROGRAM, "process", folder / "walk.zcap", "--out", folder / "again")
    assert (folder / "again" / "walk" / "signals.h5").read_bytes() == first

# SPDX-License-Identifier: MIT
"""Captures as arrays: the values are those of `zephly export --csv`, whatever state the file is in."""

import csv
import os
import pathlib
import subprocess
import sys
import threading

import numpy
import pandas
import pytest

import zephly

PROGRAM = os.environ.get("ZEPHLY_PROGRAM")
STREAMS = ("ecg", "respiration", "temperature", "battery", "motion")


def run(*command):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr


@pytest.fixture(scope="module")
def recorded(tmp_path_factory):
    """A folder with walk.zcap, a training of two minutes with lost links, and the files of its export in csv/."""
    assert PROGRAM, "ZEPHLY_PROGRAM does not name the program: run scripts/test bindings/python"
    folder = tmp_path_factory.mktemp("recorded")
    run(PROGRAM, "record", folder / "walk.zcap", "--simulated", "--speed", "1000", "--duration", "120")
    run(PROGRAM, "export", folder / "walk.zcap", "--csv", folder / "csv")
    return folder


@pytest.fixture(scope="module")
def capture(recorded):
    return zephly.Capture(recorded / "walk.zcap")


def table(path):
    """Column -> cells."""
    with open(path, newline="") as file:
        header, *rows = csv.reader(file)
    return dict(zip(header, zip(*rows)))


def numbers(cells, dtype):
    return numpy.array([numpy.nan if cell == "" else cell for cell in cells]).astype(dtype)


def same_bits(left, right):
    assert left.dtype == right.dtype and left.shape == right.shape
    return left.tobytes() == right.tobytes()


@pytest.mark.parametrize("stream", STREAMS)
def test_streams_have_the_bits_of_the_csv_files(recorded, capture, stream):
    expected = table(recorded / "csv" / f"{stream}.csv")
    arrays = getattr(capture, stream)
    assert list(arrays) == [name for name in expected if name != "date_utc"]
    assert len(arrays["time_s"]) > {"ecg": 50000, "respiration": 50000, "temperature": 100, "battery": 10, "motion": 3000}[stream]
    for name, array in arrays.items():
        cells = expected[name]
        dtype = numpy.float64 if name in ("time_s", "gap_s", "processed_time_s") else numpy.float32
        wanted = numbers(cells, dtype)
        if name == "gap_s":
            numpy.testing.assert_array_equal(array, wanted)
            assert numpy.isfinite(array).any()
        else:
            assert same_bits(array, wanted), name


def test_events_are_those_of_the_csv_file(recorded, capture):
    expected = table(recorded / "csv" / "events.csv")
    assert [event.event for event in capture.events] == list(expected["event"])
    assert [event.time for event in capture.events] == [float(cell) for cell in expected["time_s"]]
    assert [event.stream or "" for event in capture.events] == list(expected["stream"])
    durations = [float(cell) if cell else None for cell in expected["duration_s"]]
    assert [event.duration for event in capture.events] == durations
    kinds = {event.event for event in capture.events}
    assert {"connected", "link lost", "electrodes off", "electrodes on", "push-up", "sit-up", "jump", "gap"} <= kinds


def test_gaps_and_repetitions_are_events(capture):
    gaps = [event for event in capture.events if event.event == "gap"]
    assert [(gap.time, gap.duration, gap.stream) for gap in capture.gaps] == [(gap.time, gap.duration, gap.stream) for gap in gaps]
    assert all(gap.duration > 0 and gap.stream in STREAMS for gap in capture.gaps)
    assert list(capture.repetitions) == ["push-up", "sit-up", "jump"]
    for kind, times in capture.repetitions.items():
        assert times.dtype == numpy.float64 and times.size > 0
        assert times.tolist() == [event.time for event in capture.events if event.event == kind]


def test_an_event_shows_what_it_is(capture):
    gap = capture.gaps[0]
    assert repr(gap) == f"CaptureEvent(time={gap.time!r}, event='gap', stream='{gap.stream}', duration={gap.duration!r})"
    connected = next(event for event in capture.events if event.event == "connected")
    assert repr(connected) == f"CaptureEvent(time={connected.time!r}, event='connected')"


def test_preamble_and_duration(capture):
    preamble = capture.preamble
    assert preamble["program"].startswith("zephly ") and preamble["simulated"] is True and preamble["source"]
    assert preamble["began"].dtype == numpy.dtype("datetime64[ns]")
    assert abs(preamble["began"] - numpy.datetime64("now")) < numpy.timedelta64(1, "D")
    assert 119 < capture.duration < 121
    assert capture.damage == []


def test_arrays_outlive_the_capture(recorded):
    whole = zephly.Capture(str(recorded / "walk.zcap"))
    samples = whole.ecg["ecg_mV"]
    before = samples.tobytes()
    del whole
    assert samples.tobytes() == before


def test_reading_writes_nothing(recorded, capfd):
    zephly.Capture(recorded / "walk.zcap")
    assert capfd.readouterr() == ("", "")


@pytest.mark.parametrize("name", STREAMS + ("events",))
def test_pandas_frames_are_the_csv_files(recorded, capture, name):
    frame = capture.to_pandas()[name]
    expected = pandas.read_csv(recorded / "csv" / f"{name}.csv", float_precision="round_trip")
    assert list(frame.columns) == list(expected.columns)
    assert str(frame["date_utc"].dtype) == "datetime64[ns, UTC]"
    expected["date_utc"] = pandas.to_datetime(expected["date_utc"], utc=True)
    for column in frame.columns:
        left, right = frame[column], expected[column]
        if left.dtype == numpy.float32:
            right = right.astype(numpy.float32)
        pandas.testing.assert_series_equal(left, right, check_dtype=False, check_exact=True)


def test_without_pandas_the_error_names_the_package(capture, monkeypatch):
    monkeypatch.setitem(sys.modules, "pandas", None)
    with pytest.raises(ImportError, match=r"to_pandas\(\) needs pandas.*python3-pandas"):
        capture.to_pandas()


def test_pandas_is_imported_only_when_it_is_needed(recorded):
    program = (
        "import sys, zephly; zephly.Capture(sys.argv[1]); assert 'pandas' not in sys.modules;"
        "zephly.Capture(sys.argv[1]).to_pandas(); assert 'pandas' in sys.modules"
    )
    run(sys.executable, "-c", program, recorded / "walk.zcap")


def refused(path):
    with pytest.raises(zephly.CaptureError) as error:
        zephly.Capture(path)
    assert isinstance(error.value, OSError)
    message = str(error.value)
    assert "\n" not in message and str(path) in message
    return message


def test_other_files_are_refused_in_one_line(tmp_path):
    assert "no such file" in refused(tmp_path / "none.zcap")
    assert "a directory, not a capture" in refused(tmp_path)
    os.mkfifo(tmp_path / "pipe")
    assert "not a regular file" in refused(tmp_path / "pipe")
    (tmp_path / "empty").touch()
    assert "an empty file, not a capture" in refused(tmp_path / "empty")
    (tmp_path / "text").write_text("time,value\n")
    assert "not a capture" in refused(tmp_path / "text")
    for wrong in (None, 5):
        with pytest.raises(TypeError):
            zephly.Capture(wrong)


def changed(recorded, tmp_path, change):
    """The capture of a copy whose bytes were changed."""
    content = bytearray((recorded / "walk.zcap").read_bytes())
    path = tmp_path / "changed.zcap"
    path.write_bytes(change(content))
    return path


def test_a_damaged_head_is_refused(recorded, tmp_path):
    def flip(content):
        content[25] ^= 1
        return content

    assert "damaged preamble" in refused(changed(recorded, tmp_path, flip))
    assert "cut off in the head" in refused(changed(recorded, tmp_path, lambda content: content[:15]))


def is_a_part_of(part, whole):
    assert len(part.damage) == 1 and "\n" not in part.damage[0] and "changed.zcap: at byte " in part.damage[0]
    for stream in STREAMS:
        arrays, all_arrays = getattr(part, stream), getattr(whole, stream)
        count = len(arrays["time_s"])
        assert 0 < count < len(all_arrays["time_s"])
        for name, array in arrays.items():
            assert len(array) == count
            if name not in ("time_s", "gap_s"):  # the clock is fitted to what there is
                assert same_bits(array, all_arrays[name][:count])
    assert 0 < part.duration < whole.duration


def test_a_cut_capture_gives_everything_before_the_cut(recorded, capture, tmp_path):
    part = zephly.Capture(changed(recorded, tmp_path, lambda content: content[: len(content) // 2]))
    assert "cut off in the middle of a record" in part.damage[0]
    is_a_part_of(part, capture)


def test_a_damaged_capture_gives_everything_before_the_damage(recorded, capture, tmp_path):
    def flip(content):
        content[len(content) // 2] ^= 1
        return content

    part = zephly.Capture(changed(recorded, tmp_path, flip))
    assert "damaged record" in part.damage[0]
    is_a_part_of(part, capture)


def test_a_session_can_follow_and_precede(recorded, queue, recorder):
    strap = zephly.SimulatedStrap(queue, speed=None, plan="quiet")
    session = zephly.Zephly(recorder, strap)
    strap.advance(1)
    before = len(recorder.ecg)
    zephly.Capture(recorded / "walk.zcap")
    strap.advance(1)
    assert before > 0 and len(recorder.ecg) == before + 498
    session.close()


def test_not_while_another_thread_runs_a_queue(recorded, queue):
    running = threading.Event()
    queue.after(0, running.set)
    thread = threading.Thread(target=queue.run)
    thread.start()
    try:
        assert running.wait(30)
        with pytest.raises(RuntimeError, match="another thread"):
            zephly.Capture(recorded / "walk.zcap")
    finally:
        queue.stop()
        thread.join()
    zephly.Capture(recorded / "walk.zcap")


EXAMPLE = pathlib.Path(__file__).parent.parent / "examples" / "plot_capture.py"


def test_the_example_draws_a_capture(recorded, tmp_path):
    picture = tmp_path / "picture.png"
    done = subprocess.run([sys.executable, EXAMPLE, recorded / "walk.zcap", picture], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    assert f"drawn to {picture}" in done.stdout
    assert picture.read_bytes()[:8] == b"\x89PNG\r\n\x1a\n"


def test_the_example_fails_for_damage(recorded, tmp_path):
    path = changed(recorded, tmp_path, lambda content: content[: len(content) // 2])
    done = subprocess.run([sys.executable, EXAMPLE, path, tmp_path / "picture.png"], capture_output=True, text=True)
    assert done.returncode == 1 and "cut off" in done.stderr
    done = subprocess.run([sys.executable, EXAMPLE, tmp_path / "none", tmp_path / "p.png"], capture_output=True, text=True)
    assert done.returncode == 1 and done.stderr.count("\n") == 1

# SPDX-License-Identifier: MIT
"""The wheel, installed into a new environment; and the example, run as documented."""

import importlib.util
import os
import pathlib
import subprocess
import sys
import zipfile

import numpy
import pytest

import zephly

EXAMPLE = pathlib.Path(__file__).parent.parent / "examples" / "filter_recording.py"
WHEEL = os.environ.get("ZEPHLY_WHEEL")


def run(*command, **options):
    return subprocess.run([str(part) for part in command], capture_output=True, text=True, **options)


@pytest.fixture(scope="module")
def wheel():
    assert WHEEL, "ZEPHLY_WHEEL names no wheel: run scripts/test bindings/python"
    return pathlib.Path(WHEEL)


def test_wheel_works_outside_the_build_tree(wheel, tmp_path):
    environment = tmp_path / "venv"
    made = run("/usr/bin/python3", "-m", "venv", "--system-site-packages", environment)
    assert made.returncode == 0, made.stdout + made.stderr
    python = environment / "bin" / "python"
    clean = {"PATH": "/usr/bin:/bin", "HOME": str(tmp_path)}
    installed = run(python, "-m", "pip", "install", "--no-index", "--no-deps", wheel, env=clean)
    assert installed.returncode == 0, installed.stdout + installed.stderr
    program = (
        "import numpy, zephly, importlib.metadata as m; print(zephly.__file__); print(m.version('zephly'));"
        "print(zephly.Engine().processECG(numpy.ones(3, numpy.float32)).tolist())"
    )
    said = run(python, "-c", program, env=clean, cwd=tmp_path)
    assert said.returncode == 0, said.stderr
    lines = said.stdout.splitlines()
    assert lines[0].startswith(str(environment))
    assert lines[1] == zephly.__version__
    assert len(eval(lines[2])) == 3
    removed = run(python, "-m", "pip", "uninstall", "-y", "zephly", env=clean)
    assert removed.returncode == 0, removed.stderr
    assert run(python, "-c", "import zephly", env=clean, cwd=tmp_path).returncode != 0


def test_wheel_contains_types_and_no_unexpected_files(wheel):
    names = zipfile.ZipFile(wheel).namelist()
    assert {"zephly/__init__.py", "zephly/__init__.pyi", "zephly/offline.pyi", "zephly/py.typed"} < set(names)
    assert "zephly-1.0.dist-info/LICENSE" in names
    cohort = ["__init__", "__main__", "addresses", "driver", "progress", "unit"]
    assert [name for name in names if "/cohort/" in name] == [f"zephly/cohort/{name}.py" for name in cohort]
    assert len(names) == 15


def png_size(path):
    content = path.read_bytes()
    assert content[:8] == b"\x89PNG\r\n\x1a\n"
    return int.from_bytes(content[16:20], "big"), int.from_bytes(content[20:24], "big")


def test_example_with_the_simulated_strap(tmp_path):
    picture = tmp_path / "picture.png"
    said = run(sys.executable, EXAMPLE, picture)
    assert said.stdout == f"5000 samples, 10 s, drawn to {picture}\n", said.stderr
    assert png_size(picture) == (1000, 500)


def test_example_keeps_gaps(tmp_path):
    """1000 samples, a gap of 1.548 s after the 600th."""
    table = tmp_path / "ecg.csv"
    rows = [(index / 500 + (1.548 if index >= 600 else 0), 1.548 if index == 600 else "", index % 7 / 10) for index in range(1000)]
    table.write_text("time_s,date_utc,gap_s,ecg_mV\n" + "".join(f"{time},,{gap},{value}\n" for time, gap, value in rows))
    said = run(sys.executable, EXAMPLE, tmp_path / "picture.png", "--csv", table)
    assert said.stdout.startswith("1000 samples, 2 s, 1 gap, drawn"), said.stderr

    spec = importlib.util.spec_from_file_location("filter_recording", EXAMPLE)
    example = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(example)
    time, raw, gaps = example.read_csv(table, "ecg_mV")
    assert time.tolist() == [row[0] for row in rows] and numpy.flatnonzero(gaps).tolist() == [600]
    line, values = example.broken_line(time, raw, gaps)
    assert numpy.flatnonzero(numpy.isnan(line)).tolist() == numpy.flatnonzero(numpy.isnan(values)).tolist() == [600]
    # A filtered value has the time of the sample DELAY earlier, also across the gap.
    line, values = example.filtered_line(time, raw, gaps)
    filtered = zephly.Engine().processECG(raw)
    assert line.size == 1000 - example.DELAY + 1 and numpy.isnan(line[600]) and numpy.isnan(values[600])
    assert line[599] == time[599] and values[599] == filtered[599 + example.DELAY]
    assert line[601] == time[600] and values[601] == filtered[600 + example.DELAY]


def test_example_with_a_csv_file(tmp_path):
    table = tmp_path / "ecg.csv"
    table.write_text("time_s,date_utc,gap_s,ecg_mV\n" + "".join(f"{index / 500},,,{index % 7 / 10}\n" for index in range(1000)))
    picture = tmp_path / "picture.png"
    said = run(sys.executable, EXAMPLE, picture, "--csv", table)
    assert said.stdout.startswith("1000 samples, 2 s"), said.stderr
    assert png_size(picture) == (1000, 500)
    for arguments, complaint in ((("--csv", table, "--column", "no"), "no column no"), (("--csv", "/nonexistent"), "No such file")):
        wrong = run(sys.executable, EXAMPLE, picture, *arguments)
        assert wrong.returncode == 1 and complaint in wrong.stderr and wrong.stderr.count("\n") == 1

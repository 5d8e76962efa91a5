# SPDX-License-Identifier: MIT
"""The wheel, installed into a new environment; and the example, run as documented."""

import os
import pathlib
import subprocess
import sys
import zipfile

import pytest

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
    import zephly

    assert lines[1] == zephly.__version__
    assert len(eval(lines[2])) == 3
    removed = run(python, "-m", "pip", "uninstall", "-y", "zephly", env=clean)
    assert removed.returncode == 0, removed.stderr
    assert run(python, "-c", "import zephly", env=clean, cwd=tmp_path).returncode != 0


def test_wheel_contains_types_and_no_unexpected_files(wheel):
    names = zipfile.ZipFile(wheel).namelist()
    assert {"zephly/__init__.py", "zephly/__init__.pyi", "zephly/py.typed"} < set(names)
    assert "zephly-1.0.dist-info/LICENSE" in names
    assert len(names) == 8


def png_size(path):
    content = path.read_bytes()
    assert content[:8] == b"\x89PNG\r\n\x1a\n"
    return int.from_bytes(content[16:20], "big"), int.from_bytes(content[20:24], "big")


def test_example_with_the_simulated_strap(tmp_path):
    picture = tmp_path / "picture.png"
    said = run(sys.executable, EXAMPLE, picture)
    assert said.stdout == f"5000 samples, 10 s, drawn to {picture}\n", said.stderr
    assert png_size(picture) == (1000, 500)


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

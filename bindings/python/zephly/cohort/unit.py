# SPDX-License-Identifier: MIT
"""The unit of work: one recording, processed by the program `zephly`. It runs on the workers, and needs no Dask."""

from __future__ import annotations

import dataclasses
import enum
import os
import pathlib
import re
import subprocess
from collections.abc import Collection

# Of the program's errors, as much as travels.
LONGEST_ERRORS = 2000
# Its exit code after SIGINT, SIGTERM or SIGHUP.
INTERRUPTED = 130


@dataclasses.dataclass(frozen=True)
class Unit:
    """A recording: its first file, and those that may continue it (walk.zcap, walk.2.zcap)."""

    name: str
    files: tuple[str, ...]
    size: int  # bytes


class Outcome(enum.Enum):
    """How a run of the program ended."""

    DONE = "done"
    WAS_THERE = "already done"
    DAMAGED = "damaged"  # the result is there, up to the damage
    FAILED = "failed"  # no result
    KILLED = "killed"  # by a signal
    REFUSED = "refused"  # the options or a name, or there is no program


def result_name(capture: str) -> str:
    """The name of its result: "walk" for "captures/walk.zcap"."""
    path = pathlib.PurePath(capture)
    return path.stem if path.suffix == ".zcap" else path.name


def units_of(captures: list[str]) -> list[Unit]:
    """One unit for each recording, in the order of the captures. Raises ValueError for two results of one name.

    Whether walk.2.zcap continues walk.zcap is in the files; the program looks, when it has both.
    """
    by_name: dict[str, str] = {}
    for capture in captures:
        name = result_name(capture)
        if name in by_name:
            raise ValueError(f"{by_name[name]} and {capture} have the same name: their results would be one directory")
        by_name[name] = capture
    files: dict[str, list[str]] = {}
    for name, capture in by_name.items():
        files.setdefault(_first_of(name, by_name), []).append(capture)
    return [Unit(name, tuple(sorted(each)), sum(map(_size, each))) for name, each in files.items()]


def _first_of(name: str, names: Collection[str]) -> str:
    shorter = re.fullmatch(r"(.*)\.[0-9]+", name, re.DOTALL)
    return _first_of(shorter[1], names) if shorter and shorter[1] in names else name


def _size(path: str) -> int:
    try:
        return os.stat(path).st_size
    except OSError:
        return 0  # the program says why


# "1 capture: 0 done, 0 already done, 1 damaged, 0 failed"
SUMMARY = re.compile(rb"captures?: ([0-9]+) done, ([0-9]+) already done, ([0-9]+) damaged, ([0-9]+) failed\n")


def process(program: str, files: tuple[str, ...], out: str, options: tuple[str, ...]) -> tuple[Outcome, str]:
    """Runs the program for one unit. Returns how it ended, and what it wrote about it."""
    # With its worker the program ends as well: a retry would do the same work beside it.
    command = ["setpriv", "--pdeathsig", "KILL", "--", program, "process", *files]
    command += ["--out", out, "--jobs", "1", "--no-cohort", *options]
    try:
        run = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, check=False)
    except OSError as error:
        return Outcome.REFUSED, f"{command[0]}: {error.strerror}"
    errors = run.stderr.decode(errors="replace").replace("zephly process: ", "").strip()[-LONGEST_ERRORS:]
    if run.returncode < 0:
        return Outcome.KILLED, f"ended by signal {-run.returncode}"
    if run.returncode == INTERRUPTED:
        return Outcome.KILLED, "interrupted"
    counts = SUMMARY.search(run.stdout)
    if run.returncode not in (0, 1) or counts is None:
        return Outcome.REFUSED, errors or f"{program}: exit code {run.returncode}"
    done, was_there, damaged, failed = map(int, counts.groups())
    if failed:
        return Outcome.FAILED, errors
    if damaged:
        return Outcome.DAMAGED, errors
    return (Outcome.DONE if done else Outcome.WAS_THERE), ""

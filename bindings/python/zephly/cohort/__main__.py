# SPDX-License-Identifier: MIT
"""The command `python3 -m zephly.cohort`. docs/cohorts.md describes it."""

from __future__ import annotations

import argparse
import os
import pathlib
import shutil
import signal
import subprocess
import sys

from .addresses import Certificates, check_scheduler
from .unit import Unit, units_of

EPILOG = """examples:
  python3 -m zephly.cohort captures/ --out results                  on this machine, with a worker for each processor
  python3 -m zephly.cohort captures/ --out results --scheduler tls://head:8786 \\
      --tls-ca ca.pem --tls-cert me.pem --tls-key me.key            on the workers of a scheduler

The same command goes on where an earlier one ended. docs/cohorts.md describes it.
Exit code: 0 all done; 1 a capture damaged or not done; 2 wrong options; 130 interrupted."""


def number_from_1(text: str) -> int:
    number = int(text)
    if not 1 <= number <= 4096:
        raise ValueError
    return number


number_from_1.__name__ = "number from 1 to 4096"  # argparse shows it


def arguments_of(command: list[str] | None) -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="python3 -m zephly.cohort",
        description="Processes many captures on Dask, each by `zephly process`.",
        epilog=EPILOG,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        allow_abbrev=False,
    )
    add = parser.add_argument
    add("captures", nargs="+", metavar="CAPTURE", help="captures, and folders of them (*.zcap)")
    add("--out", required=True, metavar="DIRECTORY", help="where the results are written")
    add("--workers", type=number_from_1, metavar="N", help="captures at the same time on this machine (default: the number of processors)")
    add("--scheduler", metavar="ADDRESS", help="a Dask scheduler elsewhere, tls://HOST:PORT; it has the workers")
    add("--tls-ca", metavar="FILE", help="the certificate of the authority that signed the others (PEM)")
    add("--tls-cert", metavar="FILE", help="the certificate of this client (PEM)")
    add("--tls-key", metavar="FILE", help="its key (PEM)")
    add("--program", default="zephly", metavar="PATH", help="the program zephly, here and on the workers (default: zephly on the PATH)")
    add("--attempts", type=number_from_1, default=3, metavar="N", help="how often a capture may fail or lose its worker (default: 3)")
    for option, text in (
        ("--csv", "write CSV files, as zephly process does"),
        ("--edf", "write an EDF+ file, as zephly process does"),
        ("--edf-discontinuous", "leave gaps out of the EDF+ file"),
    ):
        add(option, dest="options", action="append_const", const=option, default=[], help=text)
    arguments = parser.parse_args(command)
    try:
        check(arguments)
    except ValueError as error:
        parser.exit(2, f"zephly.cohort: {error}\n")
    return arguments


def check(arguments: argparse.Namespace) -> None:
    """Completes the arguments. Raises ValueError for those that do not belong together."""
    files: list[str] = [file or "" for file in (arguments.tls_ca, arguments.tls_cert, arguments.tls_key)]
    if any(files) and not all(files):
        raise ValueError("--tls-ca, --tls-cert and --tls-key belong together")
    arguments.certificates = Certificates(*files) if all(files) else None
    for file in filter(None, files):
        if not os.access(file, os.R_OK):
            raise ValueError(f"{file}: cannot be read")
    if arguments.scheduler is not None:
        if arguments.workers is not None:
            raise ValueError("--workers is for this machine: a scheduler has its own workers")
        check_scheduler(arguments.scheduler, arguments.certificates)
    elif arguments.certificates is not None:
        raise ValueError("--tls-ca, --tls-cert and --tls-key are for --scheduler")
    if "--edf-discontinuous" in arguments.options and "--edf" not in arguments.options:
        raise ValueError("--edf-discontinuous needs --edf")
    if not arguments.out:
        raise ValueError("--out: the name of a directory expected")
    program = shutil.which(arguments.program)
    if program is None:
        raise ValueError(f"{arguments.program}: no such program; name zephly with --program")
    arguments.program = os.path.abspath(program)
    arguments.units = units_of(captures_in(arguments.captures))


def captures_in(names: list[str]) -> list[str]:
    """Absolute paths, because a worker has another working directory. Folders are not searched in depth."""
    captures: list[str] = []
    for name in names:
        if os.path.isdir(name):
            found = sorted(str(path) for path in pathlib.Path(os.path.abspath(name)).iterdir() if path.suffix == ".zcap")
            if not found:
                raise ValueError(f"{name}: no capture (*.zcap) is in this folder")
            captures += found
        elif os.path.exists(name):
            captures.append(os.path.abspath(name))
        else:
            raise ValueError(f"{name}: no such file or folder")
    return captures


def write_table(program: str, out: str) -> int:
    """cohort.csv, from all results that are there. Returns an exit code."""
    run = subprocess.run([program, "process", "--out", out], stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    sys.stderr.write(run.stderr)
    sys.stdout.write(run.stdout)
    return 0 if run.returncode == 0 else 1


def interrupt(_signal: int, _frame: object) -> None:
    raise KeyboardInterrupt


def main(command: list[str] | None = None) -> int:
    arguments = arguments_of(command)
    out = os.path.abspath(arguments.out)
    units: list[Unit] = arguments.units
    try:
        os.makedirs(out, exist_ok=True)
    except OSError as error:
        print(f"zephly.cohort: {arguments.out}: {error.strerror}", file=sys.stderr)
        return 1
    for one in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(one, interrupt)
    from .driver import Failure, MissingDask, run_cohort, end_at_once  # here: it imports Dask

    try:
        good = run_cohort(units, out, arguments)
        code = write_table(arguments.program, out)
        sys.stdout.flush()
        return code if good else 1
    except MissingDask as error:
        print(f"zephly.cohort: {error}", file=sys.stderr)
        return 1
    except Failure as error:
        print(f"zephly.cohort: {error}", file=sys.stderr)
        end_at_once(1)
    except KeyboardInterrupt:
        print("zephly.cohort: interrupted; what is done is kept, and the same command goes on with the rest", file=sys.stderr)
        end_at_once(130)
    except BrokenPipeError:
        end_at_once(1)
    return 1


if __name__ == "__main__":
    sys.exit(main())

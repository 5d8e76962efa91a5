# SPDX-License-Identifier: MIT
"""Hands the units of a cohort to Dask's workers and collects how each ended. The only part that imports Dask."""

from __future__ import annotations

import argparse
import asyncio
import collections
import concurrent.futures
import contextlib
import dataclasses
import importlib.util
import logging
import os
import queue
import shutil
import sys
import tempfile
import time
from typing import Any, NoReturn, Protocol

# Dask's log would name each worker that is lost several times, with tracebacks; what matters is reported here. In the
# environment, because workers are new processes.
os.environ.setdefault("DASK_LOGGING__DISTRIBUTED", "critical")

from .addresses import Certificates
from .progress import Progress
from .unit import Outcome, Unit, process

LOOPBACK = "127.0.0.1"
CHECK = 1.0  # seconds between two looks at the workers
PATIENCE = 10.0  # seconds that Dask has to replace a worker itself
CONNECT = 20.0  # seconds
COLLECT = 5.0  # seconds


class MissingDask(Exception):
    """One line that says what to install."""


class Failure(Exception):
    """The run cannot go on: one line."""


_folders: list[str] = []  # of local workers


def end_at_once(code: int) -> NoReturn:
    """Ends this process and with it the local workers, which would take seconds to be closed one by one."""
    for folder in _folders:
        shutil.rmtree(folder, ignore_errors=True)
    try:
        sys.stdout.flush()
        sys.stderr.flush()
    finally:
        os._exit(code)


def set_errors_aside(folder: str) -> str:
    """Lets the processes that are started from now on write their errors to a file: Dask's processes print tracebacks when
    a worker is lost. Messages of this process go where they went. Returns the path of the file."""
    path = os.path.join(folder, "errors.txt")
    sys.stderr.flush()
    own = os.dup(2)
    file = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o600)
    os.dup2(file, 2)
    os.close(file)
    sys.stderr = os.fdopen(own, "w", errors="backslashreplace")
    return path


class Workers(Protocol):
    """Where the units are processed."""

    client: Any  # distributed.Client

    def watch(self) -> dict[str, int]:
        """To be called every second. Returns the workers by their addresses, with how many units each takes at a time."""
        ...

    def close(self) -> None: ...


def import_distributed() -> Any:
    try:
        import distributed
    except ImportError as error:
        raise MissingDask(f"Dask is missing ({error}): install Debian's python3-distributed") from error
    for name in ("distributed", "distributed.client"):  # the second has a level of its own
        logging.getLogger(name).setLevel(logging.CRITICAL)
    return distributed


class LocalWorkers:
    """Processes on this machine. Their scheduler has a port on the loopback interface only, and admits nobody but them,
    by certificates that exist in memory: other users of the machine could run code otherwise."""

    def __init__(self, wanted: int, folder: str, progress: Progress) -> None:
        distributed = import_distributed()
        if importlib.util.find_spec("cryptography") is None:
            raise MissingDask("the certificates of the local workers need Debian's python3-cryptography")
        self._wanted = wanted
        self._progress = progress
        self._short_since: float | None = None
        self._cluster = distributed.LocalCluster(
            n_workers=wanted,
            threads_per_worker=1,
            processes=True,
            host=LOOPBACK,
            security=True,
            dashboard_address=f"{LOOPBACK}:0",
            worker_dashboard_address=f"{LOOPBACK}:0",
            memory_limit=None,
            local_directory=folder,
        )
        self.client = distributed.Client(self._cluster)
        if importlib.util.find_spec("bokeh") is not None:
            progress.say(f"dashboard: {self._cluster.dashboard_link}")

    def watch(self) -> dict[str, int]:
        workers: dict[str, int] = self.client.nthreads()
        there = len(workers)
        now = time.monotonic()
        if there >= self._wanted:
            self._short_since = None
        elif self._short_since is None:
            self._short_since = now
        elif now - self._short_since > PATIENCE:
            # The process that watched over a worker can fail with it. It stays in the cluster's list.
            missing = self._wanted - there
            self._progress.say(f"{there} of {self._wanted} workers are left: starting {missing} more")
            self._cluster.scale(len(self._cluster.worker_spec) + missing)
            self._short_since = now
        return workers

    def close(self) -> None:
        # All units are done. A cluster that has lost workers may not answer.
        with contextlib.suppress(OSError, TimeoutError, asyncio.TimeoutError):
            self.client.close()
            self._cluster.close()


class RemoteWorkers:
    """Those of a scheduler that somebody else has started."""

    def __init__(self, address: str, certificates: Certificates | None, progress: Progress) -> None:
        distributed = import_distributed()
        self._address = address
        self._progress = progress
        self._said_none = False
        security = None
        if certificates is not None:
            security = distributed.Security(
                tls_ca_file=certificates.ca,
                tls_client_cert=certificates.cert,
                tls_client_key=certificates.key,
                require_encryption=True,
            )
        try:
            self.client = distributed.Client(address, security=security, timeout=CONNECT, set_as_default=False)
        except (OSError, TypeError, ValueError) as error:
            # The cause says more than Dask's own text, but a timeout has no text.
            texts = [str(one) for one in (error.__cause__, error) if one is not None and str(one)]
            reason = (texts or [type(error).__name__])[0].splitlines()[0]
            raise Failure(f"{address}: no connection: {reason}") from error
        dashboard = self.client.dashboard_link
        if dashboard:
            progress.say(f"dashboard: {dashboard}")

    def watch(self) -> dict[str, int]:
        try:
            workers: dict[str, int] = self.client.nthreads()
        except OSError as error:
            raise Failure(f"{self._address}: the connection is lost; the same command goes on with the rest") from error
        if not workers and not self._said_none:
            self._progress.say(f"{self._address} has no worker: waiting for one")
        self._said_none = not workers
        return workers

    def close(self) -> None:
        self.client.close()


@dataclasses.dataclass
class Flight:
    """A unit in work."""

    future: Any
    unit: Unit
    worker: str  # its address


class Cohort:
    """The state of a run: which units wait, which are in work, how often each was tried."""

    def __init__(self, units: list[Unit], out: str, arguments: argparse.Namespace, workers: Workers, progress: Progress) -> None:
        self._arguments = arguments
        self._out = out
        self._workers = workers
        self._progress = progress
        self._waiting = collections.deque(units)
        self._flights: dict[str, Flight] = {}  # by the key of the future
        self._landed: queue.SimpleQueue[Any] = queue.SimpleQueue()
        self._tries: collections.Counter[str] = collections.Counter()
        self._free: collections.Counter[str] = collections.Counter()  # by the worker's address: how many units it can take
        self._looked = -CHECK  # when, at the workers
        self.counts: collections.Counter[Outcome] = collections.Counter()

    def run(self) -> None:
        while self._waiting or self._flights:
            if time.monotonic() - self._looked >= CHECK:
                self._look()
            for worker in +self._free:
                while self._waiting and self._free[worker] > 0:
                    self._start(self._waiting.popleft(), worker)
            try:
                self._land(self._landed.get(timeout=CHECK))
            except queue.Empty:
                pass
            self._progress.draw()

    def _look(self) -> None:
        workers = self._workers.watch()
        self._looked = time.monotonic()
        for key, flight in list(self._flights.items()):
            if flight.worker not in workers:
                del self._flights[key]
                flight.future.cancel()
                self._settle(flight.unit, Outcome.KILLED, "its worker was lost")
        self._free = collections.Counter(workers)
        self._free.subtract(flight.worker for flight in self._flights.values())

    def _start(self, unit: Unit, worker: str) -> None:
        """On a certain worker, and no more than it has threads: its loss counts against the units that it has."""
        arguments = self._arguments
        future = self._workers.client.submit(
            process, arguments.program, unit.files, self._out, tuple(arguments.options), pure=False, workers=[worker]
        )
        self._flights[future.key] = Flight(future, unit, worker)
        self._free[worker] -= 1
        future.add_done_callback(self._landed.put)

    def _land(self, landed: Any) -> None:
        flight = self._flights.pop(landed.key, None)
        if flight is None:
            return  # its worker was lost
        future = flight.future
        self._free[flight.worker] += 1
        try:
            # Its worker holds the result and may be lost with it. Dask would wait for that worker to compute it again.
            error = future.exception(timeout=COLLECT) if future.status == "error" else None
            if error is None:
                outcome, text = future.result(timeout=COLLECT)
            else:  # of Dask itself, or of the worker's Python
                outcome, text = Outcome.FAILED, f"{type(error).__name__}: {str(error).partition(chr(10))[0]}"
        except (OSError, TimeoutError, asyncio.TimeoutError, concurrent.futures.CancelledError, asyncio.CancelledError):
            self._waiting.append(flight.unit)
            self._looked = -CHECK
        else:
            self._settle(flight.unit, outcome, text)

    def _settle(self, unit: Unit, outcome: Outcome, text: str) -> None:
        if outcome in (Outcome.FAILED, Outcome.KILLED):
            self._tries[unit.name] += 1
            if self._tries[unit.name] < self._arguments.attempts:
                # Last, so that what fails for all at the moment, as on a full disk, is tried again as late as possible.
                self._waiting.append(unit)
                return
            text = f"{unit.name}: not done after {self._tries[unit.name]} attempts: {text}"
        self.counts[outcome] += 1
        if text:
            self._progress.say(text)
        self._progress.advance(unit.size)


def summary_text(counts: collections.Counter[Outcome]) -> str:
    lost = counts[Outcome.FAILED] + counts[Outcome.KILLED] + counts[Outcome.REFUSED]
    total = sum(counts.values())
    return (
        f"{total} {'recording' if total == 1 else 'recordings'}: {counts[Outcome.DONE]} done, "
        f"{counts[Outcome.WAS_THERE]} already done, {counts[Outcome.DAMAGED]} damaged, {lost} failed"
    )


def local_workers(wanted: int, progress: Progress) -> LocalWorkers:
    _folders.append(tempfile.mkdtemp(prefix="zephly-cohort-"))
    import_distributed()  # before its errors are out of sight
    errors = set_errors_aside(_folders[-1])
    try:
        return LocalWorkers(wanted, _folders[-1], progress)
    except (OSError, RuntimeError) as error:
        with open(errors, encoding="utf-8", errors="replace") as file:
            lines = file.read().splitlines()
        raise Failure(f"the workers could not be started: {lines[-1] if lines else error}") from error


def run_cohort(units: list[Unit], out: str, arguments: argparse.Namespace) -> bool:
    """Processes all units. Returns whether all of them are done and none is damaged. Raises MissingDask, Failure."""
    progress = Progress(len(units), sum(unit.size for unit in units))
    workers: Workers
    if arguments.scheduler is not None:
        workers = RemoteWorkers(arguments.scheduler, arguments.certificates, progress)
    else:
        workers = local_workers(min(arguments.workers or os.cpu_count() or 1, len(units)), progress)
    cohort = Cohort(units, out, arguments, workers, progress)
    try:
        cohort.run()
    finally:
        progress.end()
    workers.close()
    for folder in _folders:
        shutil.rmtree(folder, ignore_errors=True)
    print(summary_text(cohort.counts), flush=True)
    return all(outcome in (Outcome.DONE, Outcome.WAS_THERE) for outcome in cohort.counts)

# SPDX-License-Identifier: MIT
"""Which worker gets which unit, what becomes of a lost one, and what is shown: with workers that end as the test says."""

import argparse
import concurrent.futures

import distributed
import pytest

from zephly.cohort import driver
from zephly.cohort.progress import Progress
from zephly.cohort.unit import Outcome, units_of


class FakeDask:
    """Workers that call the function at once. What they are given, and how their futures end, is up to the test."""

    def __init__(self, workers):
        self.client = self
        self.workers = workers
        self.given = []
        self.lost = []  # numbers of calls whose result is lost
        self.silent = []  # numbers of calls that do not end

    def watch(self):
        return dict(self.workers)

    def submit(self, function, program, files, out, options, pure, workers):
        number = len(self.given)
        self.given.append((files[0], workers))
        dask = self

        class Future:
            key = f"key-{number}"
            status = "lost" if number in dask.lost else "finished"

            def add_done_callback(self, callback):
                if number not in dask.silent:
                    callback(self)

            def result(self, timeout):
                if self.status == "lost":
                    raise concurrent.futures.CancelledError
                return Outcome.DONE, ""

            def cancel(self):
                pass

        return Future()


def run_fake(dask, units, monkeypatch):
    monkeypatch.setattr(driver, "CHECK", 0.05)
    run = driver.Cohort(units_of(units), "out", argparse.Namespace(program="p", options=[], attempts=3), dask, Progress(1, 1))
    run.run()
    return run.counts


def test_a_result_that_is_lost_with_its_worker_is_computed_again(monkeypatch):
    dask = FakeDask({"w1": 1})
    dask.lost = [0, 1, 2, 3]
    assert run_fake(dask, ["/a.zcap"], monkeypatch) == {Outcome.DONE: 1}
    assert dask.given == [("/a.zcap", ["w1"])] * 5


def test_a_worker_has_no_more_units_than_threads(monkeypatch):
    dask = FakeDask({"w1": 1, "w2": 2})
    dask.silent = [0, 1, 2]

    looks = []

    def watch():
        looks.append(len(dask.given))
        return dask.workers if len(looks) < 4 else {"w3": 1}  # those before are lost

    monkeypatch.setattr(dask, "watch", watch)
    assert run_fake(dask, [f"/{i}.zcap" for i in range(4)], monkeypatch) == {Outcome.DONE: 4}
    assert looks[:4] == [0, 3, 3, 3]
    assert sorted(worker for _, worker in dask.given[:3]) == [["w1"], ["w2"], ["w2"]]
    assert dask.given[3:] == [(f"/{file}.zcap", ["w3"]) for file in "3012"]


@pytest.mark.parametrize(("text", "reason"), [("too slow\nagain", "too slow"), ("", "OSError")])
def test_a_connection_that_fails_without_a_reason_is_an_error(monkeypatch, text, reason):
    def client(*arguments, **options):
        raise OSError(text) from TimeoutError()

    monkeypatch.setattr(distributed, "Client", client)
    with pytest.raises(driver.Failure, match=f"^tcp://127.0.0.1:1: no connection: {reason}$"):
        driver.RemoteWorkers("tcp://127.0.0.1:1", None, Progress(1, 1))


def test_the_line_of_progress():
    progress = Progress(200, 4_000_000_000)
    assert progress.text(0, 80) == "[" + "." * 30 + "] 0 of 200, 0.0 of 4.0 GB, 0 MB/s"
    progress.advance(1_000_000_000)
    assert progress.text(20, 80) == "[" + "#" * 8 + "." * 22 + "] 1 of 200, 1.0 of 4.0 GB, 50 MB/s, 1:00 left"
    assert progress.text(20, 60) == "[###..........] 1 of 200, 1.0 of 4.0 GB, 50 MB/s, 1:00 left"
    assert progress.text(20, 30) == " 1 of 200, 1.0 of 4.0 GB, 50 "
    progress.advance(3_000_000_000)
    assert progress.text(4000, 80) == "[" + "#" * 30 + "] 2 of 200, 4.0 of 4.0 GB, 1 MB/s"


def test_messages_do_not_control_the_terminal(capsys):
    Progress(1, 1).say("a\x1b[2Jb\nc")
    assert capsys.readouterr().err == "zephly.cohort: a?[2Jb\nzephly.cohort: c\n"

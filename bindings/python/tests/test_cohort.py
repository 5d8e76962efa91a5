# SPDX-License-Identifier: MIT
"""A cohort on Dask gives what `zephly process` gives, whatever is killed meanwhile.

More of it than fits into every run: ZEPHLY_COHORT_KILLS=20 ZEPHLY_COHORT_DRIVER_KILLS=5 scripts/test bindings/python --
-k kills
"""

import hashlib
import os
import pathlib
import random
import signal
import subprocess
import sys
import time

import distributed
import psutil
import pytest

from zephly.cohort import driver
from zephly.cohort.__main__ import arguments_of
from zephly.cohort.addresses import Certificates, check_scheduler
from zephly.cohort.progress import Progress
from zephly.cohort.unit import Outcome, process, units_of

PROGRAM = os.environ.get("ZEPHLY_PROGRAM", "")
WORKER_KILLS = int(os.environ.get("ZEPHLY_COHORT_KILLS", "3"))
DRIVER_KILLS = int(os.environ.get("ZEPHLY_COHORT_DRIVER_KILLS", "1"))
PATIENCE = 120  # seconds


def start(*arguments, program=PROGRAM, **options):
    """The command in a session of its own, so that a signal reaches all of its processes."""
    command = [sys.executable, "-m", "zephly.cohort", "--program", str(program), *map(str, arguments)]
    return subprocess.Popen(
        command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, start_new_session=True, **options
    )


def finish(running):
    try:
        output, errors = running.communicate(timeout=PATIENCE)
    finally:
        running.kill()
    return running.returncode, output, errors


def cohort(*arguments, **options):
    return finish(start(*arguments, **options))


def directly(*arguments):
    return subprocess.run([PROGRAM, "process", *map(str, arguments)], capture_output=True, text=True, timeout=PATIENCE)


def digest(out):
    """Of all manifests, which have the digests of the other files, and of the table."""
    files = sorted(out.glob("*/manifest.json")) + [out / "cohort.csv"]
    total = hashlib.sha256()
    for file in files:
        total.update(f"{file.relative_to(out)}\n".encode() + file.read_bytes())
    return total.hexdigest()


@pytest.fixture(scope="module")
def recordings(tmp_path_factory):
    """Ten captures of 0.5 s to 35 s, two of them damaged. The first and longest has a link loss."""
    folder = tmp_path_factory.mktemp("recordings")
    for seed, duration in enumerate(["35", "0.5", "1", "1.5", "2", "2.5", "3", "4", "5", "6"]):
        capture = folder / f"r{seed}.zcap"
        command = [PROGRAM, "record", capture, "--simulated", "--seed", str(seed), "--duration", duration, "--speed", "10000"]
        subprocess.run(command, check=True, capture_output=True)
    os.truncate(folder / "r7.zcap", 20_000)
    content = bytearray((folder / "r8.zcap").read_bytes())
    content[30_000] ^= 0x10
    (folder / "r8.zcap").write_bytes(content)
    return sorted(folder.glob("*.zcap"))


def cohort_of(recordings, folder, count):
    folder.mkdir()
    for i in range(count):
        os.link(recordings[i] if i < 10 else recordings[1 + i % 6], folder / f"night-{i:03}.zcap")
    return folder


@pytest.fixture(scope="module")
def captures(recordings, tmp_path_factory):
    return cohort_of(recordings, tmp_path_factory.mktemp("few") / "captures", 20)


@pytest.fixture(scope="module")
def reference(captures, tmp_path_factory):
    out = tmp_path_factory.mktemp("reference") / "results"
    assert directly(captures / "night-000.zcap", *sorted(captures.glob("*.zcap"))[1:], "--out", out, "--jobs", "1").returncode == 1
    return digest(out)


def script(path, text):
    path.write_text(f"#!/bin/sh\n{text}\n")
    path.chmod(0o755)
    return path


@pytest.fixture
def slow(tmp_path):
    """The program, which takes a while, so that it can be killed in its work."""
    return script(tmp_path / "slow", f'sleep 0.03\nexec "{PROGRAM}" "$@"')


def test_two_jobs_give_the_same(captures, reference, tmp_path):
    assert directly(*captures.glob("*.zcap"), "--out", tmp_path / "out", "--jobs", "2").returncode == 1
    assert digest(tmp_path / "out") == reference


@pytest.mark.parametrize("workers", [1, 2])
def test_dask_gives_the_same_in_any_order(captures, reference, tmp_path, workers):
    files = sorted(captures.glob("*.zcap"))
    random.Random(workers).shuffle(files)
    code, output, errors = cohort(*files, "--out", tmp_path / "out", "--workers", workers)
    assert code == 1
    assert output.startswith("20 recordings: 18 done, 0 already done, 2 damaged, 0 failed\n")
    assert sorted(line.split(": ")[1].split("/")[-1] for line in errors.splitlines()) == [
        "night-007.zcap", "night-008.zcap"
    ], "only damage is reported without a terminal"
    assert digest(tmp_path / "out") == reference


def is_alive(process):
    try:
        return process.is_running() and process.status() != psutil.STATUS_ZOMBIE
    except psutil.NoSuchProcess:
        return False


def kill_a_worker(running, chance):
    """Returns whether one was there."""
    workers = []
    for child in psutil.Process(running.pid).children(recursive=True):
        try:
            if any("spawn_main" in part for part in child.cmdline()):
                workers.append(child)
        except psutil.NoSuchProcess:
            pass  # a program that has ended
    try:
        chance.choice(workers).kill()
    except (IndexError, psutil.NoSuchProcess):
        return False
    return True


def wait_for(condition, running):
    end = time.monotonic() + PATIENCE
    while not condition():
        assert running.poll() is None, running.communicate()
        assert time.monotonic() < end, "timeout"
        time.sleep(0.01)


def results(out):
    return len(list(out.glob("*/manifest.json"))) if out.exists() else 0


def test_kills_of_workers_and_of_the_driver_change_nothing(recordings, slow, tmp_path):
    """200 recordings."""
    count = 200
    captures = cohort_of(recordings, tmp_path / "captures", count)
    assert directly(*captures.glob("*.zcap"), "--out", tmp_path / "reference", "--jobs", "2").returncode == 1
    out = tmp_path / "out"
    chance = random.Random(20)
    for kill in range(DRIVER_KILLS):
        running = start(captures, "--out", out, "--workers", 4, program=slow)
        end = (kill + 1) * count // (3 * DRIVER_KILLS)
        wait_for(lambda: results(out) >= end, running)
        running.kill()
        running.communicate()
    before = results(out)
    running = start(captures, "--out", out, "--workers", 4, program=slow)
    for kill in range(WORKER_KILLS):
        # The run checks all results that are there at first.
        end = before + (kill + 1) * (count - before) // (WORKER_KILLS + 2)
        wait_for(lambda: results(out) >= end, running)
        wait_for(lambda: kill_a_worker(running, chance), running)
    code, output, errors = finish(running)
    assert code == 1, errors
    assert output.splitlines()[0].endswith(" already done, 2 damaged, 0 failed"), errors
    assert digest(out) == digest(tmp_path / "reference")
    assert sorted(path.name for path in out.iterdir()) == sorted(path.name for path in (tmp_path / "reference").iterdir())
    again = directly(*captures.glob("*.zcap"), "--out", out)
    assert again.stdout.startswith("200 captures: 0 done, 198 already done, 2 damaged, 0 failed"), "every file is as its manifest says"


def test_a_capture_that_kills_is_reported_and_the_rest_is_done(recordings, tmp_path):
    program = script(
        tmp_path / "killing",
        f"""case $2 in
        */kills-itself.zcap) kill -9 $$ ;;
        */kills-its-worker.zcap) kill -9 $PPID ; sleep 60 ;;
        esac
        exec "{PROGRAM}" "$@" """,
    )
    folder = tmp_path / "captures"
    folder.mkdir()
    for name in ("kills-itself", "kills-its-worker", "a", "b", "c"):
        os.link(recordings[1], folder / f"{name}.zcap")
    code, output, errors = cohort(folder, "--out", tmp_path / "out", "--workers", 2, program=program)
    assert code == 1
    assert output.splitlines()[0] == "5 recordings: 3 done, 0 already done, 0 damaged, 2 failed"
    assert sorted(errors.splitlines()) == [
        "zephly.cohort: kills-its-worker: not done after 3 attempts: its worker was lost",
        "zephly.cohort: kills-itself: not done after 3 attempts: ended by signal 9",
    ]
    assert sorted(path.parent.name for path in (tmp_path / "out").glob("*/manifest.json")) == ["a", "b", "c"]


def test_a_full_disk_loses_nothing(recordings, tmp_path):
    """Files larger than 16 KiB cannot be written."""
    captures = cohort_of(recordings, tmp_path / "captures", 4)
    out = tmp_path / "out"
    limited = ["/bin/sh", "-c", 'ulimit -f 32; exec "$0" "$@"', sys.executable, "-m", "zephly.cohort", "--program", PROGRAM]
    full = subprocess.run([*limited, captures, "--out", out, "--workers", "2", "--csv"], capture_output=True, text=True, timeout=PATIENCE)
    assert full.returncode == 1
    assert "night-000: not done after 3 attempts: " in full.stderr and "File too large" in full.stderr
    assert not out.joinpath("night-000").exists()
    code, output, errors = cohort(captures, "--out", out, "--workers", "2", "--csv")
    assert code == 0 and output.splitlines()[0].endswith(" 0 damaged, 0 failed"), errors
    directly(*captures.glob("*.zcap"), "--out", tmp_path / "reference", "--csv")
    assert digest(out) == digest(tmp_path / "reference")


def test_an_interruption_keeps_what_is_done_and_leaves_no_process(captures, slow, tmp_path):
    out = tmp_path / "out"
    running = start(captures, "--out", out, "--workers", 2, program=slow, env={**os.environ, "TMPDIR": str(tmp_path)})
    wait_for(lambda: results(out) >= 3, running)
    # Nobody but the workers can reach the scheduler.
    processes = [psutil.Process(running.pid), *psutil.Process(running.pid).children(recursive=True)]
    listening = []
    for each in processes:
        try:
            connections = each.net_connections() if hasattr(each, "net_connections") else each.connections()
        except psutil.NoSuchProcess:
            continue  # a program that has ended
        listening += [one.laddr.ip for one in connections if one.status == psutil.CONN_LISTEN]
    assert len(listening) >= 4 and set(listening) == {"127.0.0.1"}
    running.send_signal(signal.SIGTERM)
    code, output, errors = finish(running)
    assert code == 130
    assert errors == "zephly.cohort: interrupted; what is done is kept, and the same command goes on with the rest\n"
    assert 3 <= results(out) < 20
    end = time.monotonic() + PATIENCE
    while any(map(is_alive, processes)):
        assert time.monotonic() < end
        time.sleep(0.01)
    assert not list(tmp_path.glob("zephly-cohort-*"))


def test_lost_workers_are_replaced(monkeypatch, capsys, tmp_path):
    """Also where the process that watches over a worker is gone."""
    monkeypatch.setattr(driver, "PATIENCE", 0.2)
    workers = driver.LocalWorkers(1, str(tmp_path), Progress(1, 1))
    try:
        assert workers._cluster.scheduler_address.startswith("tls://127.0.0.1:")
        first = workers.client.nthreads()
        workers._cluster.sync(next(iter(workers._cluster.workers.values())).close)
        end = time.monotonic() + PATIENCE
        while not workers.client.nthreads() or workers.client.nthreads() == first:
            assert time.monotonic() < end
            workers.watch()
            time.sleep(0.1)
    finally:
        workers.close()
    assert "zephly.cohort: 0 of 1 workers are left: starting 1 more\n" in capsys.readouterr().err


@pytest.fixture
def certificates(tmp_path):
    """Files of an authority that has signed a scheduler, workers and clients."""
    security = distributed.Security.temporary()
    files = {}
    for name, text in (("ca", security.tls_ca_file), ("cert", security.tls_client_cert), ("key", security.tls_client_key)):
        files[name] = tmp_path / f"{name}.pem"
        files[name].write_text(text)
    return security, [f"--tls-{name}={path}" for name, path in files.items()]


def test_a_scheduler_elsewhere(captures, reference, certificates, tmp_path):
    security, options = certificates
    with distributed.LocalCluster(
        n_workers=2, threads_per_worker=1, host="127.0.0.1", security=security,
        dashboard_address="127.0.0.1:0", worker_dashboard_address="127.0.0.1:0", local_directory=tmp_path,
    ) as cluster:
        address = cluster.scheduler_address
        out = tmp_path / "out"
        code, output, errors = cohort(captures, "--out", out, "--scheduler", address, *options)
        assert code == 1 and digest(out) == reference, errors
        # An authority that the scheduler does not know.
        (tmp_path / "other").mkdir()
        other = distributed.Security.temporary()
        for name, text in (("cert", other.tls_client_cert), ("key", other.tls_client_key)):
            (tmp_path / "other" / f"{name}.pem").write_text(text)
        options[1:] = [f"--tls-{name}={tmp_path / 'other' / name}.pem" for name in ("cert", "key")]
        code, output, errors = cohort(captures, "--out", out, "--scheduler", address, *options)
        assert code == 1 and output == ""
        assert errors.startswith(f"zephly.cohort: {address}: no connection: ") and errors.count("\n") == 1


@pytest.mark.parametrize(
    "address, complaint",
    [
        ("tcp://192.168.1.2:8786", "everybody in the network can run code"),
        ("tcp://head:8786", "everybody in the network can run code"),
        ("tcp://0.0.0.0:8786", "everybody in the network can run code"),
        ("tcp://127.0.0.1.example.org:8786", "everybody in the network can run code"),
        ("tls://head:8786", "tls:// needs --tls-ca"),
        ("ucx://127.0.0.1:8786", "ucx: tls:// expected"),
        ("127.0.0.1:8786", "tls://HOST:PORT expected"),
        ("head:8786", "tls://HOST:PORT expected"),
        ("tls://head", "tls://HOST:PORT expected"),
        ("tls://head:x", "tls://HOST:PORT expected"),
        ("tcp://127.0.0.1@head:8786", "tls://HOST:PORT expected"),
        ("", "tls://HOST:PORT expected"),
    ],
)
def test_refuses_schedulers_that_everybody_can_use(address, complaint, tmp_path, capfd):
    with pytest.raises(ValueError, match=complaint):
        check_scheduler(address, None)


def test_accepts_schedulers_of_this_machine_or_with_certificates():
    certificates = Certificates("ca.pem", "cert.pem", "key.pem")
    check_scheduler("tls://head:8786", certificates)
    check_scheduler("tls://[2001:db8::1]:8786", certificates)
    for address in ("tcp://127.0.0.1:8786", "tcp://[::1]:8786", "tcp://localhost:8786"):
        check_scheduler(address, None)
        with pytest.raises(ValueError, match="not encrypted"):
            check_scheduler(address, certificates)


def test_wrong_options_are_one_line(captures, tmp_path):
    (tmp_path / "empty").mkdir()
    (tmp_path / "night-000.zcap").write_bytes(b"")
    out = ["--out", tmp_path / "out"]
    for arguments, complaint in (
        ([tmp_path / "none", *out], "no such file or folder"),
        ([tmp_path / "empty", *out], "no capture (*.zcap) is in this folder"),
        ([captures, tmp_path / "night-000.zcap", *out], "have the same name"),
        ([captures, "--out", ""], "--out: the name of a directory expected"),
        ([captures, *out, "--scheduler", "tcp://10.0.0.1:8786"], "everybody in the network"),
        ([captures, *out, "--scheduler", "tcp://127.0.0.1:1", "--workers", "2"], "a scheduler has its own workers"),
        ([captures, *out, "--tls-ca", "a"], "belong together"),
        ([captures, *out, "--tls-ca=/none", "--tls-cert=/none", "--tls-key=/none"], "/none: cannot be read"),
        ([captures, *out, "--edf-discontinuous"], "--edf-discontinuous needs --edf"),
        ([captures, *out, "--program", "/none/zephly"], "/none/zephly: no such program"),
    ):
        code, output, errors = cohort(*arguments)
        assert code == 2 and output == "", arguments
        assert errors.startswith("zephly.cohort: ") and complaint in errors and errors.count("\n") == 1, errors
    for wrong in ("0", "x", "-1", "5000"):
        code, output, errors = cohort(captures, *out, "--workers", wrong)
        assert code == 2 and f"argument --workers: invalid number from 1 to 4096 value: '{wrong}'" in errors
    assert not (tmp_path / "out").exists()


def test_a_missing_scheduler_is_an_error(monkeypatch):
    monkeypatch.setattr(driver, "CONNECT", 0.5)
    with pytest.raises(driver.Failure, match="^tcp://127.0.0.1:1: no connection: [^\n]+$"):
        driver.RemoteWorkers("tcp://127.0.0.1:1", None, Progress(1, 1))


def test_a_file_in_place_of_the_directory_is_an_error(captures, tmp_path):
    (tmp_path / "file").write_text("precious")
    code, output, errors = cohort(captures, "--out", tmp_path / "file")
    assert code == 1 and errors == f"zephly.cohort: {tmp_path}/file: File exists\n"
    assert (tmp_path / "file").read_text() == "precious"


def test_without_dask_the_package_is_named(captures, tmp_path):
    (tmp_path / "distributed.py").write_text("raise ImportError('hidden')")
    paths = f"{tmp_path}:{os.environ['PYTHONPATH']}"
    code, output, errors = cohort(captures, "--out", tmp_path / "out", env={**os.environ, "PYTHONPATH": paths})
    assert code == 1 and output == ""
    assert errors == "zephly.cohort: Dask is missing (hidden): install Debian's python3-distributed\n"


def test_a_recording_in_several_files_is_one_unit():
    names = ["/b/walk.2.zcap", "/a/run.zcap", "/b/walk.zcap", "/a/lone.2.zcap", "/b/walk.10.zcap", "/b/walk.2.3.zcap", "/a/.5"]
    assert [(unit.name, [pathlib.PurePath(file).name for file in unit.files]) for unit in units_of(names)] == [
        ("walk", ["walk.10.zcap", "walk.2.3.zcap", "walk.2.zcap", "walk.zcap"]),
        ("run", ["run.zcap"]),
        ("lone.2", ["lone.2.zcap"]),
        (".5", [".5"]),
    ]
    with pytest.raises(ValueError, match="/a/x.zcap and /b/x.zcap have the same name"):
        units_of(["/a/x.zcap", "/b/x.zcap"])


def test_outcomes_of_the_program(recordings, tmp_path):
    out = str(tmp_path / "out")
    (tmp_path / "text.zcap").write_text("text")
    whole, cut = (str(recordings[1]),), (str(recordings[7]),)
    assert process(PROGRAM, whole, out, ()) == (Outcome.DONE, "")
    assert process(PROGRAM, whole, out, ()) == (Outcome.WAS_THERE, "")
    for _ in range(2):
        outcome, text = process(PROGRAM, cut, out, ())
        assert outcome == Outcome.DAMAGED and text.startswith(f"{cut[0]}: at byte ")
    assert sorted(path.name for path in (tmp_path / "out").iterdir()) == ["r1", "r7"], "no table"
    outcome, text = process(PROGRAM, (str(tmp_path / "text.zcap"),), out, ())
    assert outcome == Outcome.FAILED and "text.zcap" in text
    assert process(PROGRAM, whole, out, ("--none",))[0] == Outcome.REFUSED
    assert process("/none/zephly", whole, out, ())[0] == Outcome.REFUSED
    assert process(str(script(tmp_path / "ends", "kill -9 $$")), whole, out, ()) == (Outcome.KILLED, "ended by signal 9")
    assert process(str(script(tmp_path / "stopped", "exit 130")), whole, out, ()) == (Outcome.KILLED, "interrupted")
    assert process(str(script(tmp_path / "other", "exit 0")), whole, out, ())[0] == Outcome.REFUSED


def test_the_program_ends_with_its_worker(tmp_path):
    program = script(tmp_path / "endless", f'echo $$ >"{tmp_path}/new" && mv "{tmp_path}/new" "{tmp_path}/pid"\nexec sleep 1000')
    worker = subprocess.Popen([sys.executable, "-c", f"from zephly.cohort.unit import process; process({str(program)!r}, (), 'out', ())"])
    wait_for((tmp_path / "pid").exists, worker)
    sleeping = psutil.Process(int((tmp_path / "pid").read_text()))
    worker.kill()
    worker.wait()
    end = time.monotonic() + PATIENCE
    while is_alive(sleeping):
        assert time.monotonic() < end
        time.sleep(0.01)


def test_workers_have_other_working_directories(recordings, tmp_path, monkeypatch):
    monkeypatch.chdir(recordings[0].parent)
    (tmp_path / "zephly").symlink_to(PROGRAM)
    arguments = arguments_of([".", "--out", "x", f"--program={os.path.relpath(tmp_path / 'zephly')}"])
    assert arguments.program == str(tmp_path / "zephly")
    assert [file for unit in arguments.units for file in unit.files] == list(map(str, recordings))
    assert arguments_of(["r1.zcap", "--out", "x", "--program", PROGRAM]).units[0].files == (str(recordings[1]),)

# SPDX-License-Identifier: MIT
"""The main queue run from Python."""

import asyncio
import gc
import os
import signal
import subprocess
import sys
import textwrap
import threading
import weakref

import pytest

import zephly


def test_run_until_stopped_and_again(queue):
    calls = []
    queue.post(lambda: calls.append(1))
    queue.post(queue.stop)
    queue.run()
    queue.after(0, lambda: (calls.append(2), queue.stop()))
    queue.run()
    assert calls == [1, 2]


def test_run_returns_after_its_time_and_an_earlier_stop_ends_the_next(queue):
    queue.run(0.01)
    queue.stop()
    queue.post(lambda: pytest.fail("stopped before"))
    queue.run()


def test_timers(queue):
    calls = []
    dropped = queue.after(0, lambda: calls.append("dropped"))
    del dropped
    cancelled = queue.after(0, lambda: calls.append("cancelled"))
    assert cancelled.active()
    cancelled.cancel()
    cancelled.cancel()
    queue.after(0.001, queue.stop)
    queue.run()
    assert calls == ["dropped"] and not cancelled.active()
    del queue
    gc.collect()
    cancelled.cancel()  # outlives its queue


def test_run_raises_an_exception_and_keeps_the_rest(queue):
    calls = []

    def fails():
        raise LookupError("gone")

    queue.post(fails)
    queue.post(lambda: calls.append("later"))
    with pytest.raises(LookupError, match="gone"):
        queue.run()
    queue.post(queue.stop)
    queue.run()
    assert calls == ["later"]


def test_run_refuses_a_second_call_and_another_thread(queue):
    calls = []

    def inside():
        for call in (lambda: queue.run(0), queue.poll):
            with pytest.raises(RuntimeError, match="running already"):
                call()

        def elsewhere():
            for call in (lambda: queue.after(0, print), queue.descriptor, lambda: zephly.SimulatedStrap(queue)):
                with pytest.raises(RuntimeError, match="another thread"):
                    call()
            with pytest.raises(RuntimeError, match="another thread"):
                zephly.MainQueue().run(0)
            calls.append("refused")
            queue.post(lambda: calls.append("posted"))
            queue.post(queue.stop)

        thread = threading.Thread(target=elsewhere)
        thread.start()
        thread.join()

    queue.post(inside)
    queue.run()
    assert calls == ["refused", "posted"]


def test_stop_from_another_thread(queue):
    thread = threading.Thread(target=queue.stop)
    queue.post(thread.start)
    queue.run()
    thread.join()


def test_inside_asyncio(queue):
    calls = []

    async def main():
        loop = asyncio.get_running_loop()
        done = loop.create_future()
        loop.add_reader(queue.descriptor(), queue.poll)
        queue.after(0.001, lambda: (calls.append("timer"), done.set_result(None)))
        await done
        loop.remove_reader(queue.descriptor())

    asyncio.run(main())
    assert calls == ["timer"]


def test_keyboard_interrupt_ends_run(queue):
    queue.post(lambda: os.kill(os.getpid(), signal.SIGINT))
    with pytest.raises(KeyboardInterrupt):
        queue.run()
        queue.run(30)  # the handler may have been called between the two


def test_keyboard_interrupt_ends_an_idle_run():
    """The signal arrives while no Python code runs."""
    program = textwrap.dedent("""
        import zephly
        queue = zephly.MainQueue()
        queue.post(lambda: print("running", flush=True))
        try:
            queue.run()
        except KeyboardInterrupt:
            print("interrupted")
    """)
    with subprocess.Popen([sys.executable, "-c", program], stdout=subprocess.PIPE, text=True) as process:
        assert process.stdout.readline() == "running\n"
        process.send_signal(signal.SIGINT)
        assert process.stdout.readline() == "interrupted\n"
        assert process.wait() == 0


def test_keyboard_interrupt_ends_a_long_array():
    program = textwrap.dedent("""
        import numpy, zephly
        filter = zephly.MedianFilter(3000)
        filter.process(numpy.zeros(1))
        try:
            print("running", flush=True)  # the signal may come from here on
            while True:
                filter.process(numpy.random.RandomState(1).standard_normal(10**7))
        except KeyboardInterrupt:
            print("interrupted")
    """)
    with subprocess.Popen([sys.executable, "-c", program], stdout=subprocess.PIPE, text=True) as process:
        assert process.stdout.readline() == "running\n"
        process.send_signal(signal.SIGINT)
        assert process.stdout.readline() == "interrupted\n"
        assert process.wait() == 0


# What a daemon thread does while the interpreter ends.
BUSY = {
    "runs a queue": "queue.run()",
    "runs a queue again and again": "while True: queue.run(0.001)",
    "steps a strap": "by_hand.advance(1e9)",
    "filters an array": "zephly.MedianFilter(3000).process(numpy.zeros(10**7))",
    "sleeps in a callback": "queue.post(lambda: time.sleep(1000)); queue.run()",
}


@pytest.mark.parametrize("busy", BUSY)
def test_interpreter_ends_while_a_daemon_thread(busy):
    program = textwrap.dedent(f"""
        import numpy, threading, time, zephly

        class Application:
            def didReceiveECG(self, sample):
                pass

        queue = zephly.MainQueue()
        strap = zephly.SimulatedStrap(queue, speed=1000, plan="quiet")
        session = zephly.Zephly(Application(), strap)
        other = zephly.MainQueue()
        by_hand = zephly.SimulatedStrap(other, speed=None, plan="quiet")
        second = zephly.Zephly(Application(), by_hand)

        def work():
            {BUSY[busy]}

        threading.Thread(target=work, daemon=True).start()
        time.sleep(0.05)
    """)
    for _ in range(2 if "sleeps" in busy else 8):
        done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, timeout=60)
        assert done.returncode == 0, done.stderr
        assert not done.stderr


def test_objects_may_be_released_in_any_order(recorder):
    """Releases queue, host, session and delegate in every order, and runs the queue in between."""
    import itertools

    for order in itertools.permutations(("queue", "host", "session", "delegate")):
        world = {"queue": zephly.MainQueue(), "delegate": type(recorder)()}
        world["host"] = zephly.SimulatedStrap(world["queue"], speed=1000, plan="quiet")
        world["session"] = zephly.Zephly(world["delegate"], world["host"])
        world["queue"].run(0.005)
        for name in order:
            del world[name]
            if "queue" in world:
                world["queue"].poll()


def test_objects_may_be_released_in_a_callback(queue, recorder):
    """Especially the host: its clock must not be destroyed during one of its events."""
    world = {}

    class Leaving(type(recorder)):
        def didReceiveECG(self, sample):
            world.clear()
            gc.collect()
            super().didReceiveECG(sample)
            queue.stop()

    world["host"] = zephly.SimulatedStrap(queue, speed=1000)
    world["session"] = zephly.Zephly(Leaving(), world["host"])
    queue.run(30)
    assert not world
    queue.run(0.005)


def test_cycles_are_collected(queue, by_hand, recorder):
    class Owner(type(recorder)):
        def __init__(self):
            super().__init__()
            self.session = zephly.Zephly(self, by_hand)
            self.engine = zephly.Engine()
            self.engine.setJumpCallback(self.didConnectPeripheral)
            self.wrapper = zephly.SignalProcessor()

        def didDetectJump(self):
            pass

    owner = Owner()
    owner.wrapper.setDelegate(owner)
    by_hand.advance(3)
    assert owner.ecg
    gone = weakref.ref(owner)
    del owner
    gc.collect()
    assert gone() is None
    by_hand.advance(3)


def test_console_is_quiet_by_default(capfd, by_hand, recorder):
    session = zephly.Zephly(recorder, by_hand)
    by_hand.advance(5)
    assert capfd.readouterr().out == ""
    zephly.setConsole(True)
    try:
        by_hand.advance(5)
    finally:
        zephly.setConsole(False)
    assert capfd.readouterr().out.count("\n") > 100
    session.close()

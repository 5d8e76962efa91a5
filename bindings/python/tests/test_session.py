# SPDX-License-Identifier: MIT
"""The session on the simulated host, whose clock is stepped by hand."""

import threading

import numpy
import pytest

import zephly


def test_delivers_everything_that_the_strap_sends(by_hand, recorder):
    session = zephly.Zephly(recorder, by_hand)
    by_hand.advance(12)
    sent = by_hand.samplesSent()
    assert len(recorder.ecg) == sent["ecg"] > 4000
    assert len(recorder.respiration) == sent["respiration"] > 4000
    assert recorder.events[0] == "connected"
    temperatures = [event for event in recorder.events if isinstance(event, tuple) and event[0] == "temperature"]
    assert len(temperatures) == sent["temperature"] > 8
    assert all(20 < skin < 40 and body == 0 for _, skin, _, body in temperatures)
    batteries = [event for event in recorder.events if isinstance(event, zephly.BatteryStatus)]
    assert len(batteries) == sent["battery"] >= 1
    assert 0 <= batteries[0].soc <= 100 and not batteries[0].inCharge
    assert session.delegate is recorder
    assert max(numpy.abs(recorder.ecg)) <= 2.42
    assert by_hand.strapTime() == 12


def test_samples_are_floats_in_order_and_the_same_for_one_seed(recorder):
    received = []
    for _ in range(2):
        queue = zephly.MainQueue()
        host = zephly.SimulatedStrap(queue, seed=5, speed=None, plan="quiet")
        other = type(recorder)()
        session = zephly.Zephly(other, host)
        host.advance(4)
        session.close()
        received.append(other.ecg)
    assert received[0] == received[1]
    assert all(type(sample) is float for sample in received[0])
    assert len(set(received[0])) > 100


def test_lost_electrodes_lost_link_and_repetitions(queue, recorder):
    class Workout:
        counts = {"pushUps": 0, "sitUps": 0, "jumps": 0}

        def didDetectPushUp(self):
            self.counts["pushUps"] += 1

        def didDetectSitUp(self):
            self.counts["sitUps"] += 1

        def didDetectJump(self):
            self.counts["jumps"] += 1

    strap = zephly.SimulatedStrap(queue, speed=None)
    session = zephly.Zephly(recorder, strap)
    session.startWorkoutDetection(Workout())
    strap.advance(40)
    assert recorder.events.count("disconnected") >= 1
    assert recorder.events.count("connected") == recorder.events.count("disconnected") + 1
    assert ("leadoff", True) in recorder.events[3:] and ("leadoff", False) in recorder.events
    assert all(count > 0 for count in Workout.counts.values())
    done = strap.repetitionsDone()
    assert all(0 < Workout.counts[kind] <= done[kind] + 1 for kind in done)


def test_a_delegate_may_omit_methods(by_hand):
    class OnlyBattery:
        received = []

        def didReceiveBatteryStatus(self, status):
            self.received.append(repr(status))

    session = zephly.Zephly(OnlyBattery(), by_hand)
    by_hand.advance(3)
    assert OnlyBattery.received and OnlyBattery.received[0].startswith("BatteryStatus(soc=")
    assert session.delegate.received is OnlyBattery.received


def test_raises_an_exception_and_loses_nothing(by_hand, recorder):
    class Fragile(type(recorder)):
        def didReceiveECG(self, sample):
            super().didReceiveECG(sample)
            if len(self.ecg) == 1000:
                raise KeyError("the thousandth")

    fragile = Fragile()
    session = zephly.Zephly(fragile, by_hand)
    with pytest.raises(KeyError, match="thousandth"):
        by_hand.advance(10)
    assert len(fragile.ecg) == 1000
    stopped = by_hand.strapTime()
    assert stopped < 10
    by_hand.advance(10 - stopped)
    assert len(fragile.ecg) == by_hand.samplesSent()["ecg"]
    session.close()

    undisturbed = zephly.SimulatedStrap(zephly.MainQueue(), speed=None, plan="quiet")
    other = zephly.Zephly(recorder, undisturbed)
    undisturbed.advance(10)
    assert fragile.ecg == recorder.ecg and fragile.respiration == recorder.respiration
    assert fragile.events == recorder.events
    other.close()


def test_a_method_that_is_not_callable_is_an_exception(by_hand):
    class Odd:
        didReceiveECG = 3

    session = zephly.Zephly(Odd(), by_hand)
    with pytest.raises(TypeError, match="not callable"):
        by_hand.advance(5)
    session.close()


def test_stop_ends_advance(queue, by_hand, recorder):
    class Short(type(recorder)):
        def didReceiveECG(self, sample):
            queue.stop()

    session = zephly.Zephly(Short(), by_hand)
    by_hand.advance(1000)
    assert by_hand.strapTime() < 10
    session.close()


def test_close_ends_all_events(by_hand, recorder):
    session = zephly.Zephly(recorder, by_hand)
    by_hand.advance(4)
    received = len(recorder.ecg)
    session.close()
    by_hand.advance(4)
    assert len(recorder.ecg) == received > 0
    assert session.delegate is None
    with pytest.raises(ValueError, match="closed"):
        session.startWorkoutDetection(Pusher())


def test_close_of_the_host_in_a_callback_ends_all_events(queue, recorder):
    for speed in (1000, None):
        host = zephly.SimulatedStrap(queue, speed=speed, plan="quiet")

        class Leaving(type(recorder)):
            def didReceiveECG(self, sample):
                super().didReceiveECG(sample)
                if len(self.ecg) == 100:
                    host.close()
                    self.respiration.clear()

        leaving = Leaving()
        session = zephly.Zephly(leaving, host)
        host.advance(60) if speed is None else queue.run(0.2)
        assert host.closed
        assert len(leaving.ecg) == 100 and not leaving.respiration
        session.close()


def test_close_from_another_thread_is_refused(queue, recorder):
    host = zephly.SimulatedStrap(queue, speed=1000, plan="quiet")
    session = zephly.Zephly(recorder, host)
    refused = []

    def elsewhere():
        for close in (host.close, session.close):
            try:
                close()
            except RuntimeError as error:
                refused.append(str(error))

    def inside():
        thread = threading.Thread(target=elsewhere)
        thread.start()
        thread.join()
        queue.stop()

    queue.post(inside)
    queue.run(30)
    assert refused == ["another thread runs this main queue; use post()"] * 2
    assert not host.closed and session.delegate is recorder
    session.close()
    host.close()


class Pusher:
    def didDetectPushUp(self):
        pass


def test_two_hosts_have_independent_sessions(recorder):
    first_queue, second_queue = zephly.MainQueue(), zephly.MainQueue()
    first = zephly.SimulatedStrap(first_queue, seed=1, speed=None, plan="quiet")
    second = zephly.SimulatedStrap(second_queue, seed=2, speed=None, plan="quiet")
    other = type(recorder)()
    sessions = zephly.Zephly(recorder, first), zephly.Zephly(other, second)
    first.advance(4)
    assert recorder.ecg and not other.ecg
    second.advance(4)
    assert other.ecg and other.ecg != recorder.ecg
    for session in sessions:
        session.close()


def test_bluetooth_reports_a_missing_bus(queue, recorder):
    lines = []

    def report(line):
        lines.append(line)
        queue.stop()

    host = zephly.Bluetooth(queue, busAddress="unix:path=/nonexistent/bus", report=report)
    session = zephly.Zephly(recorder, host)
    queue.run(30)
    assert lines and "bus" in lines[0].lower()
    session.close()
    host.close()


def test_repetitions_of_the_engine_and_the_wrapper_agree(queue):
    """Synthetic jumps: the test has no access to the strap's samples, so it varies gravity."""
    seconds = numpy.arange(3000) / 30
    samples = numpy.zeros((seconds.size, 7), numpy.float32)
    samples[:, 0] = 1
    samples[:, 6] = 1 + 1.5 * numpy.sin(2 * numpy.pi * 0.8 * seconds)
    calls = []
    engine = zephly.Engine()
    engine.setJumpCallback(lambda: calls.append("jump"))
    engine.setSitUpCallback(lambda: calls.append("situp"))
    engine.setPushUpCallback(lambda: calls.append("pushup"))
    engine.imu(samples)

    class Workout:
        received = []

        def didDetectJump(self):
            self.received.append("jump")

        def didDetectSitUp(self):
            self.received.append("situp")

        def didDetectPushUp(self):
            self.received.append("pushup")

    wrapper = zephly.SignalProcessor()
    wrapper.setDelegate(Workout())
    wrapper.imu(samples)
    assert calls == Workout.received
    assert len(calls) > 5

    def fails():
        raise OSError("enough")

    fresh = zephly.Engine()
    for setter in (fresh.setJumpCallback, fresh.setSitUpCallback, fresh.setPushUpCallback):
        setter(fails)
    with pytest.raises(OSError, match="enough"):
        fresh.imu(samples)
    wrapper.setDelegate(None)
    assert wrapper.delegate() is None

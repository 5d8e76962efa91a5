# SPDX-License-Identifier: MIT
"""Fixtures of the tests. The package is found by PYTHONPATH: scripts/test bindings/python sets it."""

import gc
import signal

import numpy
import pytest

import zephly


# A job that a shell starts in the background has SIGINT ignored, and so have its children. The tests of Ctrl-C need
# what a terminal gives them.
signal.signal(signal.SIGINT, signal.default_int_handler)


@pytest.fixture(autouse=True)
def no_leftovers():
    """Releases the objects of one test before the next, because only one host can be in use."""
    yield
    gc.collect()


class Recorder:
    """A delegate that records all calls."""

    def __init__(self):
        self.events = []
        self.ecg = []
        self.respiration = []

    def didConnectPeripheral(self):
        self.events.append("connected")

    def didDisconnectPeripheral(self):
        self.events.append("disconnected")

    def didChangeLeadoffState(self, leadoff):
        self.events.append(("leadoff", leadoff))

    def didReceiveTemperature(self, objectTemperature, ambientTemperature, bodyTemperature):
        self.events.append(("temperature", objectTemperature, ambientTemperature, bodyTemperature))

    def didReceiveBatteryStatus(self, status):
        self.events.append(status)

    def didReceiveECG(self, sample):
        self.ecg.append(sample)

    def didReceiveRespiration(self, sample):
        self.respiration.append(sample)


@pytest.fixture
def recorder():
    return Recorder()


@pytest.fixture
def queue():
    return zephly.MainQueue()


@pytest.fixture
def by_hand(queue):
    """A strap whose clock only advance() steps."""
    return zephly.SimulatedStrap(queue, speed=None, plan="quiet")


@pytest.fixture
def signal():
    """A signal like an ECG: 4000 samples in float64."""
    random = numpy.random.RandomState(7)
    time = numpy.arange(4000) / 500
    return numpy.sin(7 * time) + 0.3 * numpy.sin(90 * time) + 0.05 * random.standard_normal(time.size)

# SPDX-License-Identifier: MIT
"""The same bits as the C++ program tests/bits over the same long input."""

import os
import subprocess

import numpy
import pytest

import zephly

DIGEST_PROGRAM = os.environ.get("ZEPHLY_DIGEST")


def digest(values):
    """FNV-1a over the bits of doubles, byte by byte."""
    state = 0xCBF29CE484222325
    for byte in numpy.asarray(values, "<f8").tobytes():
        state = ((state ^ byte) * 0x100000001B3) & 0xFFFFFFFFFFFFFFFF
    return f"{state:016x}"


def signal(count):
    """The input of that program: triangle, square wave, noise and spikes."""
    bits = numpy.random.RandomState(1).randint(0, 2**32, 2 * count, numpy.uint32)  # std::mt19937(1)
    noise = (bits[0::2] % 20001).astype(float) / 10000.0 - 1.0
    spike = numpy.where(bits[1::2] % 997 == 0, 2.0, 0.0)
    phase = numpy.arange(1, count + 1).astype(float)
    slow = numpy.abs(numpy.fmod(phase, 1600.0) / 800.0 - 1.0)
    fast = numpy.where(numpy.fmod(phase, 10.0) < 5.0, 0.1, -0.1)
    return 0.8 * slow + fast + 0.05 * noise + spike


def engine_results():
    engine = zephly.Engine()
    samples = signal(12000).astype(numpy.float32)
    skin = numpy.float32(33) + numpy.float32(2) * samples
    return {
        "SignalProcessor ECG": engine.processECG(samples),
        "SignalProcessor respiration": engine.processRespiration(samples),
        "SignalProcessor lead-off": engine.processLeadoffDetection(samples),
        "SignalProcessor temperature": engine.processBodyTemperature(skin, numpy.float32(21) + samples),
    }


@pytest.fixture(scope="module")
def program():
    assert DIGEST_PROGRAM, "ZEPHLY_DIGEST names no program: run scripts/test bindings/python"
    lines = subprocess.run([DIGEST_PROGRAM], check=True, capture_output=True, text=True).stdout.splitlines()
    return {line[:-16].strip(): line[-16:] for line in lines}


def test_filters(program):
    makers = {
        "BiquadFilter lowpass": (zephly.BiquadFilter(zephly.BiquadLowpass, 0.1, 8, 1.0), 100000),
        "BiquadFilter highpass": (zephly.BiquadFilter(zephly.BiquadHighpass, 0.00008, 2, 0.707), 100000),
        "BiquadFilter bandpass": (zephly.BiquadFilter(zephly.BiquadBandpass, 0.03, 4, 2.0), 100000),
        "BiquadFilter notch": (zephly.BiquadFilter(zephly.BiquadNotch, 0.12, 4, 5.0), 100000),
        "MedianFilter": (zephly.MedianFilter(300), 20000),
        "NormalizationFilter": (zephly.NormalizationFilter(1000, True), 20000),
        "LowCutFilter": (zephly.LowCutFilter(110, 0.004, 4), 100000),
    }
    samples = signal(100000)
    found = {name: digest(filter.process(samples[:count])) for name, (filter, count) in makers.items()}
    for name, passes in (("highpass", zephly.Highpass), ("lowpass", zephly.Lowpass)):
        filter = zephly.ButterworthFilter(1.0, 60, passes, 2.0)
        found["ButterworthFilter " + name] = digest(filter.process(samples.astype(numpy.float32)))
    assert found == {name: program[name] for name in found}


def test_engine(program):
    found = {name: digest(values) for name, values in engine_results().items()}
    assert found == {name: program[name] for name in found}

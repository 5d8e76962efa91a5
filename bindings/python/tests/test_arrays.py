# SPDX-License-Identifier: MIT
"""Arrays of samples: the same bits as sample by sample, and refused arguments."""

import threading

import numpy
import pytest

import zephly

DOUBLE = {
    "Filter": lambda: zephly.Filter(),
    "BiquadFilter": lambda: zephly.BiquadFilter(zephly.BiquadLowpass, 0.1, 8, 1.0),
    "MedianFilter": lambda: zephly.MedianFilter(300),
    "NormalizationFilter": lambda: zephly.NormalizationFilter(1000, True),
    "LowCutFilter": lambda: zephly.LowCutFilter(110, 0.004, 4),
}
SINGLE = {
    "ButterworthFilter": lambda: zephly.ButterworthFilter(1.0, 60, zephly.Lowpass, 2.0).process,
    "ECGMultiBandpassFilter": lambda: zephly.ECGMultiBandpassFilter().process,
    "RespirationFilter": lambda: zephly.RespirationFilter().process,
    "LeadoffDetector": lambda: zephly.LeadoffDetector().process,
    "Engine.processECG": lambda: zephly.Engine().processECG,
    "Engine.processRespiration": lambda: zephly.Engine().processRespiration,
    "Engine.processLeadoffDetection": lambda: zephly.Engine().processLeadoffDetection,
    "SignalProcessor.processECG": lambda: zephly.SignalProcessor().processECG,
    "SignalProcessor.processRespiration": lambda: zephly.SignalProcessor().processRespiration,
    "SignalProcessor.processLeadoffDetection": lambda: zephly.SignalProcessor().processLeadoffDetection,
}


def operations():
    for name, make in DOUBLE.items():
        yield pytest.param(lambda make=make: make().process, numpy.float64, id=name)
    for name, make in SINGLE.items():
        yield pytest.param(make, numpy.float32, id=name)


@pytest.mark.parametrize("make, dtype", operations())
def test_whole_array_has_the_bits_of_sample_by_sample(make, dtype, signal):
    samples = signal.astype(dtype)
    whole = make()(samples)
    step = make()
    single = [step(float(sample)) for sample in samples]
    wanted = numpy.bool_ if isinstance(single[0], bool) else dtype
    assert whole.dtype == wanted
    assert len(set(single)) > 1  # a constant would prove nothing
    assert whole.tobytes() == numpy.array(single, wanted).tobytes()


@pytest.mark.parametrize("make, dtype", operations())
def test_state_continues_across_calls(make, dtype, signal):
    samples = signal.astype(dtype)
    whole = make()(samples)
    step = make()
    parts = [step(part) for part in (samples[:1], samples[1:1234], samples[1234:1234], samples[1234:])]
    assert numpy.concatenate(parts).tobytes() == whole.tobytes()


@pytest.mark.parametrize("make, dtype", operations())
def test_other_dtypes_are_refused(make, dtype, signal):
    other = numpy.float32 if dtype is numpy.float64 else numpy.float64
    for wrong in (other, numpy.int16, numpy.complex128, numpy.dtype(dtype).newbyteorder(">"), object):
        with pytest.raises(TypeError, match="expected an array of " + numpy.dtype(dtype).name):
            make()(signal.real.astype(wrong))


@pytest.mark.parametrize("make, dtype", operations())
def test_other_shapes_and_objects_are_refused(make, dtype):
    for shape in ((), (3, 4), (0, 5)):
        with pytest.raises(ValueError, match="1 dimension"):
            make()(numpy.zeros(shape, dtype))
    for thing in ([1.0, 2.0], "1.0", None, 1j):
        with pytest.raises(TypeError, match="expected a number or an array"):
            make()(thing)


def test_non_contiguous_and_unaligned_arrays_are_copied(signal):
    wanted = zephly.MedianFilter(5).process(signal[::3].copy())
    assert zephly.MedianFilter(5).process(signal[::3]).tobytes() == wanted.tobytes()
    backwards = zephly.MedianFilter(5).process(signal[::-1])
    assert backwards.tobytes() == zephly.MedianFilter(5).process(signal[::-1].copy()).tobytes()
    packed = numpy.zeros(signal.size, numpy.dtype([("tag", "u1"), ("value", "f8")]))
    packed["value"] = signal
    assert not packed["value"].flags.aligned
    assert (zephly.Filter().process(packed["value"]) == signal).all()


def test_input_is_not_modified_and_may_be_read_only(signal):
    before = signal.copy()
    signal.flags.writeable = False
    zephly.MedianFilter(5).process(signal)
    assert (signal == before).all()


def test_empty_array_gives_an_empty_array():
    assert zephly.Engine().processECG(numpy.zeros(0, numpy.float32)).shape == (0,)


def test_nan_and_infinities_pass():
    odd = numpy.array([0, numpy.nan, numpy.inf, -numpy.inf, 1e308, 0], numpy.float64)
    for make in DOUBLE.values():
        assert make().process(odd).shape == odd.shape
    with numpy.errstate(over="ignore"):
        narrow = odd.astype(numpy.float32)
    engine = zephly.Engine()
    engine.processECG(narrow)
    engine.processRespiration(narrow)
    assert engine.processECG(1e300) is not None  # larger than a float32: infinity


def test_body_temperature():
    engine = zephly.Engine()
    skin = numpy.array([34.0, 36.0], numpy.float32)
    air = numpy.array([25.0, 25.0], numpy.float32)
    result = engine.processBodyTemperature(skin, air)
    other = zephly.Engine()
    assert result.tolist() == [other.processBodyTemperature(34.0, 25.0), other.processBodyTemperature(36.0, 25.0)]
    assert result[0] == numpy.float32(36.8)
    with pytest.raises(ValueError, match="differ in length: 2 and 1"):
        engine.processBodyTemperature(skin, air[:1])
    with pytest.raises(TypeError, match="two numbers or two arrays"):
        engine.processBodyTemperature(skin, 25.0)


def test_lock_is_released_and_a_concurrent_call_is_refused():
    """During a long call in one thread this thread continues, but cannot use the same filter."""
    median = zephly.MedianFilter(3000)
    samples = numpy.random.RandomState(1).standard_normal(16000)
    worker = threading.Thread(target=median.process, args=(samples,))
    worker.start()
    refused = 0
    turns = 0
    while worker.is_alive():
        turns += 1
        try:
            median.process(0.0)
        except RuntimeError as error:
            assert "in use" in str(error)
            refused += 1
    worker.join()
    assert turns > 0 and refused > 0

# SPDX-License-Identifier: MIT
"""Arguments that would end a C++ program, or allocate too much memory, raise an exception."""

import math

import numpy
import pytest

import zephly

SIZES = (-(2**31), -1, 0, 2**24 + 1, 2**31 - 1, 2**31)


@pytest.mark.parametrize("size", SIZES + (1, 2))
def test_median_window(size):
    with pytest.raises(ValueError, match=f"size must be 3 to 16777216, not {size}"):
        zephly.MedianFilter(size)


@pytest.mark.parametrize("size", SIZES)
def test_normalization_window(size):
    with pytest.raises(ValueError, match=f"size must be 1 to 16777216, not {size}"):
        zephly.NormalizationFilter(size, True)


@pytest.mark.parametrize("order", SIZES + (1,))
def test_order(order):
    with pytest.raises(ValueError, match=f"order must be 2 to 16777216, not {order}"):
        zephly.BiquadFilter(zephly.BiquadLowpass, 0.1, order, 1.0)
    with pytest.raises(ValueError, match="order"):
        zephly.LowCutFilter(10, 0.1, order)


@pytest.mark.parametrize("length", SIZES)
def test_delay_line(length):
    with pytest.raises(ValueError, match="delayLength must be 1"):
        zephly.LowCutFilter(length, 0.1, 2)


@pytest.mark.parametrize("value", (0.0, -0.1, 0.5, math.nan, math.inf))
def test_frequency(value):
    with pytest.raises(ValueError, match="Fc"):
        zephly.BiquadFilter(zephly.BiquadLowpass, value, 2, 1.0)
    with pytest.raises(ValueError, match="frequency"):
        zephly.ButterworthFilter(value * 60, 60, zephly.Lowpass, 2.0)


@pytest.mark.parametrize("value", (0.0, -1.0, math.nan, math.inf))
def test_quality_and_resonance(value):
    with pytest.raises(ValueError, match="Q must be"):
        zephly.BiquadFilter(zephly.BiquadLowpass, 0.1, 2, value)
    with pytest.raises(ValueError, match="resonance must be"):
        zephly.ButterworthFilter(1.0, 60, zephly.Lowpass, value)


def test_invalid_types():
    with pytest.raises(ValueError, match="no BiquadFilterType 7"):
        zephly.BiquadFilter(zephly.BiquadFilterType(7), 0.1, 2, 1.0)
    with pytest.raises(ValueError, match="no PassType 2"):
        zephly.ButterworthFilter(1.0, 60, zephly.PassType(2), 2.0)
    with pytest.raises(TypeError):
        zephly.BiquadFilter(0, 0.1, 2, 1.0)
    with pytest.raises(TypeError):
        zephly.MedianFilter(10**30)
    with pytest.raises(TypeError):
        zephly.MedianFilter(5.5)


def test_repetitions_without_callbacks_do_not_end_the_process():
    """In C++ that is a fatal error."""
    for processor in (zephly.Engine(), zephly.SignalProcessor()):
        processor.imu(numpy.random.RandomState(1).uniform(-2, 2, (5000, 7)).astype(numpy.float32))


def test_motion_samples():
    engine = zephly.Engine()
    for shape in ((3, 6), (3, 8), (3, 0)):
        with pytest.raises(ValueError, match="7 or 9 values"):
            engine.imu(numpy.zeros(shape, numpy.float32))
    with pytest.raises(ValueError, match="2 dimension"):
        engine.imu(numpy.zeros(7, numpy.float32))
    with pytest.raises(TypeError, match="float32"):
        engine.imu(numpy.zeros((3, 7)))
    with pytest.raises(TypeError):
        engine.imu([[0.0] * 7])


@pytest.mark.parametrize("value", (-1.0, math.nan, math.inf, 1e10))
def test_spans_of_time(queue, by_hand, value):
    for call in (lambda: queue.run(value), lambda: queue.after(value, print), lambda: by_hand.advance(value)):
        with pytest.raises(ValueError, match="seconds must be 0 to 1e9"):
            call()


@pytest.mark.parametrize("speed", (0.0, -1.0, math.nan, math.inf))
def test_speed(queue, speed):
    with pytest.raises(ValueError, match="speed must be"):
        zephly.SimulatedStrap(queue, speed=speed)


@pytest.mark.parametrize("seed", (-1, 2**64, -(10**30)))
def test_seed(queue, seed):
    with pytest.raises(ValueError, match=f"^seed must be 0 to 18446744073709551615, not {seed}$"):
        zephly.SimulatedStrap(queue, seed=seed)


def test_seed_of_any_integer_type(queue):
    with pytest.raises(TypeError, match="integer"):
        zephly.SimulatedStrap(queue, seed=1.5)
    zephly.SimulatedStrap(queue, seed=2**64 - 1, speed=None).close()
    zephly.SimulatedStrap(queue, seed=numpy.uint8(3), speed=None).close()


class Slips:
    def didReceiveBatteryStatus(self, status):
        pass

    def didDetectJump(self):
        pass

    didRecieveECG = didReceiveEcg = didConnect = didreceiverespiration = print
    dodDisconnectPeripheral = print
    connect = receive = print
    didReceiveTemperatures = "not a method"


def test_slips_in_the_names_of_methods(by_hand):
    """A method beside good ones whose name resembles one of a delegate is reported, with the name that is meant."""
    meant = {
        "didRecieveECG": "didReceiveECG",
        "didReceiveEcg": "didReceiveECG",
        "didConnect": "didConnectPeripheral",
        "didreceiverespiration": "didReceiveRespiration",
        "dodDisconnectPeripheral": "didDisconnectPeripheral",
    }
    with pytest.warns(UserWarning) as caught:
        session = zephly.Zephly(Slips(), by_hand)
    assert sorted(str(warning.message) for warning in caught) == sorted(
        f"the delegate's method {name} is never called by the kit; did you mean {known}?" for name, known in meant.items()
    )
    with pytest.warns(UserWarning, match="^the workout delegate's method didRecieveECG "):
        session.startWorkoutDetection(Slips())
    with pytest.warns(UserWarning, match="didRecieveECG"):
        zephly.SignalProcessor().setDelegate(Slips())
    session.close()


def test_no_warning_without_a_slip(by_hand, recorder, recwarn):
    class Both(type(recorder)):
        def didDetectPushUp(self):
            pass

        def helper(self):
            pass

    session = zephly.Zephly(Both(), by_hand)
    session.startWorkoutDetection(Both())
    session.close()
    assert not recwarn.list


def test_hosts(queue):
    with pytest.raises(ValueError, match="plan must be"):
        zephly.SimulatedStrap(queue, plan="lazy")
    with pytest.raises(ValueError, match="notifications must be"):
        zephly.Bluetooth(queue, notifications="letters")
    with pytest.raises(ValueError, match="needs speed=None"):
        zephly.SimulatedStrap(queue).advance(1)
    with pytest.raises(TypeError):
        zephly.SimulatedStrap(None)


def test_sessions(queue, by_hand, recorder):
    with pytest.raises(TypeError, match="none of the methods"):
        zephly.Zephly(object(), by_hand)
    with pytest.raises(TypeError):
        zephly.Zephly(recorder, None)
    session = zephly.Zephly(recorder, by_hand)
    with pytest.raises(TypeError, match="didDetectPushUp"):
        session.startWorkoutDetection(recorder)
    by_hand.close()
    with pytest.raises(ValueError, match="closed"):
        zephly.Zephly(recorder, by_hand)
    with pytest.raises(ValueError, match="closed"):
        by_hand.advance(1)


def test_chains():
    chain = zephly.MultiFilter()
    with pytest.raises(ValueError, match="hold itself"):
        chain.addFilter(chain)
    median = zephly.MedianFilter(5)
    chain.addFilter(median)
    with pytest.raises(ValueError, match="belongs to a chain"):
        chain.addFilter(median)
    outer = zephly.MultiFilter()
    outer.addFilter(chain)
    with pytest.raises(ValueError, match="takes no more members"):
        chain.addFilter(zephly.Filter())
    with pytest.raises(TypeError):
        outer.addFilter(None)
    deep = zephly.MultiFilter()
    with pytest.raises(ValueError, match="64 deep"):
        for _ in range(1000):
            deeper = zephly.MultiFilter()
            deeper.addFilter(deep)
            deep = deeper

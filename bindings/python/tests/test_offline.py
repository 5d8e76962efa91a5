# SPDX-License-Identifier: MIT
"""zephly.offline: the bits of the engine, copies that continue, and arguments that do not fit."""

import ast
import importlib
import inspect
import pathlib

import numpy
import pytest

import zephly


def samples(count, seed):
    return numpy.random.default_rng(seed).uniform(-2.42, 2.42, count).astype(numpy.float32)


def same_bits(left, right):
    return left.dtype == right.dtype and left.tobytes() == right.tobytes()


def test_is_a_module():
    assert importlib.import_module("zephly.offline") is zephly.offline


def test_ecg_has_the_bits_of_the_engine():
    raw = samples(20_000, 1)
    expected = zephly.Engine().processECG(raw)
    ecg = zephly.offline.Ecg()
    first = ecg.process(raw[:7_001])
    copy = ecg.copy()
    for each in (ecg, copy):
        assert same_bits(numpy.concatenate([first, each.process(raw[7_001:])]), expected)


def test_respiration_has_the_bits_of_the_engine():
    raw = samples(20_000, 2)
    engine = zephly.Engine()
    contact = engine.processLeadoffDetection(raw)
    expected = engine.processRespiration(raw)
    respiration = zephly.offline.Respiration()
    parts = [respiration.process(raw[:9_000])]
    copy = respiration.copy()
    for each in (respiration, copy):
        filtered, on = each.process(raw[9_000:])
        assert same_bits(numpy.concatenate([parts[0][0], filtered]), expected)
        assert same_bits(numpy.concatenate([parts[0][1], on]), contact)


def test_frames_reset_the_filter():
    raw = samples(8_000, 3)
    raw[2_000:6_000] = 1.25  # no contact
    lengths = numpy.full(8, 1_000, numpy.uint64)
    still = numpy.zeros(8, numpy.uint64)
    going = numpy.arange(8, dtype=numpy.uint64) * numpy.uint64(2_000_000)
    without = zephly.offline.Respiration().process(raw)[0]
    assert same_bits(zephly.offline.Respiration().process(raw, (lengths, still))[0], without)
    reset = zephly.offline.Respiration().process(raw, frames=(lengths, going))[0]
    # Contact is lost after 70 equal samples, and the first reset comes more than four seconds later.
    assert same_bits(reset[:5_000], without[:5_000])
    assert not same_bits(reset[5_000:], without[5_000:])


def test_refuses_what_does_not_fit():
    ecg, respiration = zephly.offline.Ecg(), zephly.offline.Respiration()
    raw = samples(10, 4)
    one, nothing = numpy.array([10], numpy.uint64), numpy.array([], numpy.uint64)
    for wrong, error in ((0.5, TypeError), (raw.astype(float), TypeError), (raw.reshape(2, 5), ValueError)):
        with pytest.raises(error):
            ecg.process(wrong)
        with pytest.raises(error):
            respiration.process(wrong)
    with pytest.raises(TypeError):
        respiration.process(raw, (one,))
    with pytest.raises(TypeError):
        respiration.process(raw, (one.astype(int), one))
    with pytest.raises(TypeError):
        respiration.process(raw, ([10], [0]))
    less, more = numpy.array([9], numpy.uint64), numpy.array([11], numpy.uint64)
    for frames in ((one, nothing), (nothing, nothing), (less, one), (more, one)):
        with pytest.raises(ValueError):
            respiration.process(raw, frames)
    engine = zephly.Engine()
    engine.processLeadoffDetection(raw)
    assert same_bits(respiration.process(raw, (one, one))[0], engine.processRespiration(raw))


def test_stub_names_the_same():
    stub = pathlib.Path(zephly.__file__).with_name("offline.pyi")
    named = {}
    for node in ast.parse(stub.read_text()).body:
        if isinstance(node, ast.ClassDef):
            named[node.name] = sorted(method.name for method in node.body)
    public = {name: value for name, value in vars(zephly.offline).items() if inspect.isclass(value)}
    assert named == {
        name: sorted(member for member in vars(value) if not member.startswith("_") or member == "__init__")
        for name, value in public.items()
    }
    assert all(inspect.getdoc(value) for value in public.values())

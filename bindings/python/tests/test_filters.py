# SPDX-License-Identifier: MIT
"""The filters: examples, chains, lifetimes and resets."""

import numpy

import zephly


def test_worked_examples():
    assert zephly.MedianFilter(5).process(numpy.arange(1.0, 6.0))[-1] == 4.0
    assert zephly.MedianFilter(4).process(numpy.arange(1.0, 5.0))[-1] == 3.5
    normalization = zephly.NormalizationFilter(3, True)
    assert normalization.process(numpy.array([-2.0, 1.0])).tolist() == [0.0, 0.75]
    assert (normalization.min(), normalization.max()) == (-2.0, 2.0)


def test_chain_is_its_members_in_order(signal):
    def members():
        return (zephly.MedianFilter(5), zephly.BiquadFilter(zephly.BiquadNotch, 0.1, 4, 5.0), zephly.LowCutFilter(7, 0.1, 2))

    expected = signal
    for member in members():
        expected = member.process(expected)
    chain = zephly.MultiFilter()
    for member in members():
        chain.addFilter(member)
    assert chain.process(signal).tobytes() == expected.tobytes()
    assert chain.lastInput() == signal[-1]


def test_member_and_chain_keep_each_other_alive(signal):
    chain = zephly.MultiFilter()
    chain.addFilter(zephly.MedianFilter(5))  # Python keeps nothing of it
    assert chain.process(signal).tobytes() == zephly.MedianFilter(5).process(signal).tobytes()
    member = zephly.MedianFilter(5)
    chain.addFilter(member)
    del chain
    assert member.process(signal).tobytes() == zephly.MedianFilter(5).process(signal).tobytes()


def test_high_pass_settles_on_reset():
    high_pass = zephly.BiquadFilter(zephly.BiquadHighpass, 0.01, 2, 0.707)
    assert high_pass.process(3.0) > 1.0
    high_pass.reset()
    assert abs(high_pass.process(3.0)) < 1e-9
    assert high_pass.lastInput() == 3.0


def test_stages_of_the_respiration_chain_can_be_reset(signal):
    samples = signal.astype(numpy.float32)
    chain, other = zephly.RespirationFilter(), zephly.RespirationFilter()
    assert (chain.process(samples) == other.process(samples)).all()
    normalization = chain.normalization
    assert normalization.max() > 0
    normalization.reset()
    chain.highPass.reset()
    assert (chain.process(samples) != other.process(samples)).any()
    del chain
    normalization.reset()  # the stages outlive their chain

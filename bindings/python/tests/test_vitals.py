# SPDX-License-Identifier: MIT
"""Vitals of arrays and of a session."""

import builtins

import numpy
import pytest

import zephly

RATE = 500


def worn(seconds, rate=RATE, heart=75, breathing=15):
    """Times, ECG and respiration of somebody at rest."""
    random = numpy.random.RandomState(3)
    times = numpy.arange(seconds * rate) / rate
    ecg = 0.02 * random.standard_normal(times.size)
    for beat in numpy.arange(0.4, seconds, 60 / heart):
        ecg += 1.1 * numpy.exp(-(((times - beat) / 0.012) ** 2)) - 0.2 * numpy.exp(-(((times - beat - 0.03) / 0.012) ** 2))
        ecg += 0.3 * numpy.exp(-(((times - beat - 0.28) / 0.05) ** 2))
    respiration = 0.4 + 0.3 * numpy.sin(2 * numpy.pi * breathing / 60 * times) + 0.005 * random.standard_normal(times.size)
    return times, ecg.astype(numpy.float32), respiration.astype(numpy.float32)


@pytest.fixture(scope="module")
def minute():
    return worn(60)


def test_beats_breaths_and_seconds_are_arrays_of_equal_length(minute):
    times, ecg, respiration = minute
    vitals = zephly.Vitals()
    vitals.process(ecg=(times, ecg), respiration=(times, respiration))
    vitals.finish()
    assert len(vitals.beats["time_s"]) == pytest.approx(75, abs=3)
    assert numpy.nanmedian(vitals.beats["rr_s"]) == pytest.approx(0.8, abs=0.002)
    assert numpy.isnan(vitals.beats["rr_s"][0])
    assert set(vitals.beats["class"]) <= {"normal", "ectopic", "artefact"}
    assert not vitals.beats["late"].any()
    assert len(vitals.breaths["time_s"]) == pytest.approx(14, abs=2)
    assert len(vitals.seconds["time_s"]) == 60
    assert vitals.seconds["heart_rate"][50] == pytest.approx(75, abs=0.5)
    assert vitals.seconds["breathing_rate"][50] == pytest.approx(15, abs=1)
    assert numpy.isnan(vitals.seconds["contact"]).all()
    for table in (vitals.beats, vitals.breaths, vitals.seconds):
        assert len({len(column) for column in table.values()}) == 1


@pytest.mark.parametrize("piece", [1, 6, 500])
def test_pieces_give_the_same(minute, piece):
    times, ecg, respiration = (array[: 20 * RATE] for array in minute)
    whole = zephly.Vitals()
    whole.process(ecg=(times, ecg), respiration=(times, respiration))
    whole.finish()
    pieces = zephly.Vitals()
    for begin in range(0, times.size, piece):
        part = slice(begin, begin + piece)
        pieces.process(ecg=(times[part], ecg[part]))
        pieces.process(respiration=(times[part], respiration[part]))
    pieces.finish()
    for left, right in ((whole.beats, pieces.beats), (whole.seconds, pieces.seconds)):
        for name in left:
            assert left[name].tobytes() == right[name].tobytes(), name


def test_without_contact_there_are_no_rates(minute):
    times, ecg, respiration = minute
    vitals = zephly.Vitals()
    contact = (numpy.array([0.0, 30.0]), numpy.array([True, False]))
    vitals.process(ecg=(times, ecg), respiration=(times, respiration), contact=contact)
    vitals.finish()
    assert vitals.beats["time_s"].max() < 30.1
    assert vitals.seconds["contact"][20] == 1
    assert vitals.seconds["contact"][40] == 0
    assert numpy.isnan(vitals.seconds["heart_rate"][34:]).all()
    assert numpy.isnan(vitals.seconds["breathing_rate"][34:]).all()


def test_hrv(minute):
    times, ecg, _ = minute
    vitals = zephly.Vitals(respirationRate=0)
    vitals.process(ecg=(times, ecg))
    vitals.finish()
    hrv = vitals.hrv()
    assert hrv["mean_nn_ms"] == pytest.approx(800, abs=1)
    assert hrv["sdnn_ms"] < 5
    assert hrv["share"] > 0.95
    assert hrv["lf_ms2"] is None
    assert vitals.hrv(10)["beats"] < hrv["beats"]
    for seconds in (0, -1, float("nan")):
        with pytest.raises(ValueError):
            vitals.hrv(seconds)


def test_data_frames(minute, monkeypatch):
    times, ecg, _ = minute
    vitals = zephly.Vitals(respirationRate=0)
    vitals.process(ecg=(times, ecg))
    vitals.finish()
    frames = vitals.to_pandas()
    assert list(frames) == ["beats", "breaths", "seconds"]
    assert list(frames["beats"]) == list(vitals.beats)
    assert len(frames["seconds"]) == 60
    original = builtins.__import__

    def without_pandas(name, *rest):
        if name == "pandas":
            raise ImportError(name)
        return original(name, *rest)

    monkeypatch.setattr(builtins, "__import__", without_pandas)
    monkeypatch.delitem(__import__("sys").modules, "pandas")
    with pytest.raises(ImportError, match="Vitals.to_pandas.. needs pandas"):
        vitals.to_pandas()


def test_arguments_are_checked(minute):
    times, ecg, _ = minute
    for arguments in ({"ecgRate": 99}, {"ecgRate": 1001}, {"respirationRate": 9}, {"ecgRate": float("nan")}):
        with pytest.raises(ValueError):
            zephly.Vitals(**arguments)
    vitals = zephly.Vitals()
    with pytest.raises(ValueError, match="the arrays of ecg differ in length: 29999 and 30000"):
        vitals.process(ecg=(times[1:], ecg))
    for wrong in (ecg, (times,), [times, ecg], (times.astype(numpy.float32), ecg), (times, times)):
        with pytest.raises(TypeError):
            vitals.process(ecg=wrong)
    with pytest.raises(TypeError):
        vitals.process(contact=(times[:1], numpy.array([1])))


def test_times_and_values_of_any_kind_are_taken():
    times = numpy.array([0, 0.002, numpy.nan, numpy.inf, -numpy.inf, 1e300, 0.004, 0.003])
    values = numpy.array([numpy.nan, numpy.inf, 1, 1, 1, 1, -numpy.inf, 1], numpy.float32)
    vitals = zephly.Vitals()
    vitals.process(ecg=(times, values), respiration=(times, values), contact=(times, values > 0))
    vitals.finish()
    assert len(vitals.beats["time_s"]) == 0


class Heart:
    def __init__(self):
        self.beats = []
        self.breaths = []
        self.seconds = []

    def didFindBeat(self, beat):
        self.beats.append(beat)

    def didFindBreath(self, breath):
        self.breaths.append(breath)

    def didMeasureSecond(self, second):
        self.seconds.append(second)


def test_a_session_reports_vitals(by_hand):
    heart = Heart()
    session = zephly.Zephly(heart, by_hand)
    by_hand.advance(40)
    assert len(heart.beats) > 30
    assert len(heart.breaths) > 3
    assert heart.beats[5].time > heart.beats[4].time
    assert heart.beats[5].rr == pytest.approx(heart.beats[5].time - heart.beats[4].time, abs=1e-6)
    assert sum(beat.kind == "normal" for beat in heart.beats) > 25
    assert heart.breaths[3].duration > 1
    last = heart.seconds[-1]
    assert 37 < last.time <= 40
    assert 40 < last.heartRate < 120
    assert last.breathingRate > 5
    assert last.contact is True
    session.close()
    count = len(heart.seconds)
    by_hand.advance(5)
    assert len(heart.seconds) == count


def test_a_delegate_of_vitals_receives_the_samples_too(by_hand, recorder):
    class Both(type(recorder)):
        def didMeasureSecond(self, second):
            self.events.append(second)

    both = Both()
    session = zephly.Zephly(both, by_hand)
    by_hand.advance(12)
    assert len(both.ecg) > 5000
    assert any(isinstance(event, zephly.Second) for event in both.events)
    session.close()


def test_a_slip_in_a_name_is_a_warning(by_hand):
    class Slip:
        def didFindBeat(self, beat):
            pass

        def didFindBreaths(self, breath):
            pass

    with pytest.warns(UserWarning, match="did you mean didFindBreath"):
        zephly.Zephly(Slip(), by_hand)

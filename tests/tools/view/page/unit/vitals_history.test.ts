// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import test from 'node:test';
import { parseText, type Vitals } from '../../../../../tools/view/page/src/protocol';
import { KEPT, VitalsHistory } from '../../../../../tools/view/page/src/vitals_history';
import { beat, second, vitals } from '../messages.mjs';

function history(...messages: object[]): VitalsHistory {
  const filled = new VitalsHistory();
  for (const message of messages) filled.take(parseText(JSON.stringify(vitals(message))) as Vitals);
  return filled;
}

test('what is sent again is added once', () => {
  const breath = { t: 3, duration: 4, depth: 1, quality: 1, derived: false };
  const message = { beats: [beat(1), beat(2)], breaths: [breath], seconds: [second({ t: 2 })] };
  const filled = history(message, message, { beats: [beat(2), beat(3)] });
  assert.deepEqual(filled.beats.map(({ t }) => t), [1, 2, 3]);
  assert.deepEqual(filled.breaths, [breath]);
  assert.equal(filled.seconds.length, 1);
});

test('a beat that is found late is put in its place', () => {
  const filled = history({ beats: [beat(1), beat(3)] }, { beats: [beat(2, { late: true })] });
  assert.deepEqual(filled.beats.map(({ t, late }) => [t, late]), [[1, false], [2, true], [3, false]]);
});

test('the beats of a window begin at its left edge and end before its right edge', () => {
  const filled = history({ beats: [1, 2, 3, 4].map((t) => beat(t)) });
  assert.deepEqual(filled.beatsWithin(2, 4).map(({ t }) => t), [2, 3]);
  assert.deepEqual(filled.beatsWithin(5, 9), []);
});

test('the tachogram is broken at gaps and at artefacts, not at ectopic beats', () => {
  const filled = history({
    beats: [beat(1, { rr: null }), beat(1.8, { rr: 0.8 }), beat(2.4, { rr: 0.6, class: 'ectopic' }), beat(2.5, { rr: 0.1, class: 'artefact' }), beat(3.4, { rr: 0.9 })],
  });
  assert.deepEqual(filled.tachogram(), { x: [1, 1.8, 2.4, 2.5, 3.4], y: [null, 800, 600, null, 900] });
});

test('the breathing rate is a line of its own where it comes from the ECG, and is broken where it is unknown or missing', () => {
  const filled = history({
    seconds: [
      second({ t: 1, breathingRate: 12 }),
      second({ t: 2, breathingRate: 13, breathingDerived: true }),
      second({ t: 3, breathingRate: null }),
      second({ t: 9, breathingRate: 15 }),
    ],
  });
  assert.deepEqual(filled.breathing(false), { x: [1, 2, 3, 6, 9], y: [12, null, null, null, 15] });
  assert.deepEqual(filled.breathing(true), { x: [1, 2, 3, 6, 9], y: [null, 13, null, null, null] });
});

test('long sessions use bounded memory', () => {
  const filled = new VitalsHistory();
  for (let t = 0; t < 3 * KEPT; ++t) {
    filled.take(vitals({ beats: [beat(t), beat(t + 0.5)], breaths: [{ t }], seconds: [second({ t })] }) as Vitals);
  }
  assert.equal(filled.beats.length, 2 * KEPT + 1);
  assert.equal(filled.breaths.length, KEPT + 1);
  assert.equal(filled.seconds.length, KEPT + 1);
});

test('a snapshot does not change', () => {
  const filled = history({ beats: [beat(1)] });
  const copy = filled.snapshot();
  filled.take(vitals({ beats: [beat(2)] }) as Vitals);
  assert.equal(copy.beats.length, 1);
  assert.notEqual(copy.version, filled.version);
});

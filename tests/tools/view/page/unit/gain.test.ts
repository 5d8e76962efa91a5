// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import test from 'node:test';
import { Gain, GAINS } from '../../../../../tools/view/page/src/gain';

const FULL = { low: -2.42, high: 2.42 };

test('the first values set auto gain', () => {
  const gain = new Gain(FULL, false, true);
  assert.ok(gain.see(-0.4, 1.0, 0));
  assert.ok(gain.current.low <= -0.4 && gain.current.high >= 1.0);
  assert.ok(gain.factor > 2);
});

test('auto gain widens the range at once, and narrows it only after a delay', () => {
  const gain = new Gain(FULL, false, true);
  gain.see(-0.1, 0.1, 0);
  assert.ok(gain.see(-1, 1, 1));
  assert.ok(gain.current.low <= -1 && gain.current.high >= 1);
  assert.equal(gain.see(-0.1, 0.1, 2), false);
  assert.equal(gain.see(-0.1, 0.1, 3.9), false);
  assert.ok(gain.see(-0.1, 0.1, 4.1));
  assert.ok(gain.current.high < 0.3);
});

test('a large value in the meantime keeps the range', () => {
  const gain = new Gain(FULL, false, true);
  gain.see(-1, 1, 0);
  gain.see(-0.1, 0.1, 1);
  gain.see(-1, 1, 2.5);
  assert.equal(gain.see(-0.1, 0.1, 3.2), false);
});

test('a flat line has a range', () => {
  const gain = new Gain(FULL, false, true);
  gain.see(0.5, 0.5, 0);
  assert.ok(gain.current.high > gain.current.low);
  assert.ok(gain.current.low <= 0.5 && gain.current.high >= 0.5);
});

test('symmetric ranges keep zero in the middle', () => {
  const gain = new Gain({ low: -1, high: 1 }, true, true);
  gain.see(0.01, 0.2, 0);
  assert.equal(gain.current.low, -gain.current.high);
  assert.ok(gain.current.high >= 0.2);
});

test('steps select the gains and end auto gain', () => {
  const gain = new Gain(FULL, false, false);
  const seen = [gain.factor];
  for (let i = 0; i < 3; ++i) {
    gain.step(1);
    seen.push(Math.round(gain.factor * 1000) / 1000);
  }
  assert.deepEqual(seen, GAINS.slice(0, 4));
  gain.step(-1);
  assert.equal(Math.round(gain.factor * 1000) / 1000, GAINS[2]);
  const auto = new Gain(FULL, false, true);
  auto.see(-0.4, 1, 0);
  const before = auto.factor;
  auto.step(1);
  assert.equal(auto.auto, false);
  assert.ok(auto.factor > before);
  assert.equal(auto.see(-2, 2, 9), false);
});

test('steps stop at both ends, and the range stays within the full scale', () => {
  const gain = new Gain(FULL, false, false);
  gain.step(-1);
  assert.deepEqual(gain.current, FULL);
  for (let i = 0; i < 50; ++i) gain.step(1);
  assert.ok(Math.abs(gain.factor - (GAINS.at(-1) as number)) < 1e-6);
  for (let i = 0; i < 50; ++i) {
    gain.step(-1);
    assert.ok(gain.current.low >= FULL.low - 1e-9 && gain.current.high <= FULL.high + 1e-9);
  }
  assert.ok(Math.abs(gain.factor - 1) < 1e-9);
});

test('less gain for values near an end of the scale stays on the scale', () => {
  const gain = new Gain(FULL, false, true);
  gain.see(2.1, 2.3, 0);
  for (let i = 0; i < 20; ++i) {
    gain.step(-1);
    assert.ok(gain.current.high <= FULL.high + 1e-9, `up to ${gain.current.high}`);
  }
});

test('a gain of 1 shows the full scale', () => {
  const gain = new Gain(FULL, false, true);
  gain.see(0, 0.1, 0);
  gain.reset();
  assert.deepEqual(gain.current, FULL);
  assert.equal(gain.auto, false);
});

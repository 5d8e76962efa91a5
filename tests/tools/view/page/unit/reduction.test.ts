// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import test from 'node:test';
import { Reduction } from '../../../../../tools/view/page/src/reduction';
import { SampleRing } from '../../../../../tools/view/page/src/sample_ring';

const RATE = 500;

function filled(values: readonly number[], start = 0, firstIndex = 0): SampleRing {
  const ring = new SampleRing(RATE, 30, 1);
  ring.take({ type: 'samples', stream: 'ecg', index: firstIndex, time: start, count: values.length, values: Float32Array.from(values) });
  return ring;
}

function points(reduction: Reduction): [number, number][] {
  return Array.from({ length: reduction.length }, (_, i) => [reduction.x[i], reduction.y[0][i]]);
}

const noise = (n: number) => Array.from({ length: n }, (_, i) => Math.sin(i * 12.9898) * Math.cos(i * 0.01));

test('with enough columns every sample is a point', () => {
  const reduction = new Reduction(1);
  reduction.fill(filled([3, 1, 2]), 0, 1, 1000);
  assert.deepEqual(points(reduction), [
    [0, 3],
    [1 / RATE, 1],
    [2 / RATE, 2],
  ]);
});

test('no extreme is ever lost', () => {
  const values = noise(5000);
  values[2345] = 7;
  values[3456] = -7;
  const reduction = new Reduction(1);
  reduction.fill(filled(values), 0, 10, 300);
  const shown = points(reduction);
  assert.ok(shown.length <= 2 * 2 * 300 + 4, String(shown.length));
  assert.ok(shown.some(([x, y]) => y === 7 && x === 2345 / RATE));
  assert.ok(shown.some(([x, y]) => y === -7 && x === 3456 / RATE));
  assert.deepEqual([reduction.low[0], reduction.high[0]], [-7, 7]);
});

test('points are in the order of time', () => {
  const reduction = new Reduction(1);
  reduction.fill(filled(noise(5000)), 0, 10, 300);
  assert.ok(points(reduction).every(([x], i, all) => i === 0 || x > all[i - 1][0]));
});

test('a moving window keeps its points', () => {
  const ring = filled(noise(8000));
  const before = new Reduction(1);
  before.fill(ring, 0, 10, 300);
  const after = new Reduction(1);
  after.fill(ring, 0.5, 10.5, 300);
  const inside = (all: [number, number][]) => all.filter(([x]) => x > 1 && x < 9).map(String);
  assert.ok(inside(points(before)).length > 100);
  assert.deepEqual(inside(points(after)), inside(points(before)));
});

test('a gap is reported, and no point covers samples on both sides of it', () => {
  const ring = filled(noise(1000));
  ring.take({ type: 'samples', stream: 'ecg', index: 1000, time: 3, count: 1000, values: Float32Array.from(noise(1000)) });
  const reduction = new Reduction(1);
  reduction.fill(ring, 0, 5, 50);
  assert.equal(reduction.gapCount, 1);
  assert.equal(reduction.gapFrom[0], 999 / RATE);
  assert.equal(reduction.gapTo[0], 3);
  assert.ok(points(reduction).every(([x]) => x <= 999 / RATE || x >= 3));
});

test('an empty span gives no points', () => {
  const reduction = new Reduction(1);
  reduction.fill(new SampleRing(RATE, 30, 1), 0, 10, 300);
  assert.equal(reduction.length, 0);
  assert.equal(reduction.low[0], Infinity);
});

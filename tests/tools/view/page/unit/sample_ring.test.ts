// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import test from 'node:test';
import type { Samples, StreamName } from '../../../../../tools/view/page/src/protocol';
import { SampleRing } from '../../../../../tools/view/page/src/sample_ring';

const RATE = 500;

function message(index: number, time: number, values: number[], stream: StreamName = 'ecg'): Samples {
  const width = stream === 'motion' ? 2 : 1;
  return { type: 'samples', stream, index, time, count: values.length / width, values: Float32Array.from(values) };
}

function kept(ring: SampleRing) {
  const positions = Array.from({ length: ring.end - ring.begin }, (_, i) => (ring.begin + i) & ring.mask);
  return {
    indexes: positions.map((p) => ring.indexes[p]),
    values: positions.map((p) => ring.values[0][p]),
    times: positions.map((p) => ring.times[p]),
    gaps: positions.map((p) => ring.gapBefore[p]),
  };
}

test('consecutive samples have no gap', () => {
  const ring = new SampleRing(RATE, 30, 1);
  assert.equal(ring.take(message(0, 1, [1, 2])), 0);
  assert.equal(ring.take(message(2, 1 + 2 / RATE, [3])), 0);
  assert.deepEqual(kept(ring), { indexes: [0, 1, 2], values: [1, 2, 3], times: [1, 1 + 1 / RATE, 1 + 2 / RATE], gaps: [0, 0, 0] });
});

test('known samples are not added again', () => {
  const ring = new SampleRing(RATE, 30, 1);
  ring.take(message(0, 1, [1, 2, 3]));
  assert.equal(ring.take(message(1, 1 + 1 / RATE, [9, 9])), 0);
  assert.equal(ring.take(message(1, 1 + 1 / RATE, [9, 9, 4, 5])), 0);
  assert.deepEqual(kept(ring).indexes, [0, 1, 2, 3, 4]);
  assert.deepEqual(kept(ring).values, [1, 2, 3, 4, 5]);
  assert.deepEqual(kept(ring).gaps, [0, 0, 0, 0, 0]);
});

test('a jump of the index is a gap with the number of missing samples', () => {
  const ring = new SampleRing(RATE, 30, 1);
  ring.take(message(0, 1, [1, 2]));
  assert.equal(ring.take(message(12, 1 + 12 / RATE, [3, 4])), 10);
  assert.deepEqual(kept(ring).gaps, [0, 0, 1, 0]);
});

test('a jump of the index is a gap even when the times are continuous', () => {
  const ring = new SampleRing(RATE, 30, 1);
  ring.take(message(0, 1, [1, 2]));
  assert.equal(ring.take(message(12, 1 + 2 / RATE, [3])), 10);
  assert.deepEqual(kept(ring).gaps, [0, 0, 1]);
});

test('a jump of the time alone is a gap in which nothing is missing', () => {
  const ring = new SampleRing(RATE, 30, 1);
  ring.take(message(0, 1, [1, 2]));
  assert.equal(ring.take(message(2, 3, [3])), 0);
  assert.deepEqual(kept(ring).gaps, [0, 0, 1]);
});

test('joining late is not a loss', () => {
  const ring = new SampleRing(RATE, 30, 1);
  assert.equal(ring.take(message(123456, 250, [1])), 0);
  assert.deepEqual(kept(ring).gaps, [0]);
});

test('when the time axis is set back, new samples replace old ones', () => {
  const ring = new SampleRing(RATE, 30, 1);
  ring.take(message(0, 1, [1, 2, 3]));
  assert.equal(ring.take(message(3, 1 + 1 / RATE, [4, 5, 6])), 0);
  assert.deepEqual(kept(ring), {
    indexes: [0, 3, 4, 5],
    values: [1, 4, 5, 6],
    times: [1, 1 + 1 / RATE, 1 + 2 / RATE, 1 + 3 / RATE],
    gaps: [0, 0, 0, 0],
  });
  assert.equal(ring.received, 6);
});

test('the same in a full ring', () => {
  const ring = new SampleRing(RATE, 2, 1);
  const capacity = ring.mask + 1;
  const all = Array.from({ length: capacity + 100 }, (_, i) => i);
  ring.take(message(0, 0, all));
  ring.take(message(all.length, (all.length - 50) / RATE, [7]));
  const { indexes, times } = kept(ring);
  assert.equal(indexes[0], 100);
  assert.equal(indexes.length, capacity - 50 + 1);
  assert.ok(times.every((time, i) => i === 0 || time > times[i - 1]));
});

test('a full ring drops the oldest samples', () => {
  const ring = new SampleRing(RATE, 2, 1);
  const capacity = ring.mask + 1;
  for (let i = 0; i < capacity + 5; ++i) ring.take(message(i, i / RATE, [i]));
  assert.equal(ring.end - ring.begin, capacity);
  assert.equal(kept(ring).indexes[0], 5);
  assert.equal(ring.positionAt(0), ring.begin);
  assert.equal(ring.positionAt(1000), ring.end);
  assert.equal(ring.times[ring.positionAt(1) & ring.mask], 1);
});

test('motion samples keep both values', () => {
  const ring = new SampleRing(30, 30, 2);
  ring.take(message(0, 1, [1, 10, 2, 20], 'motion'));
  assert.deepEqual([...ring.values[0].slice(0, 2), ...ring.values[1].slice(0, 2)], [1, 2, 10, 20]);
});

test('a snapshot does not change', () => {
  const ring = new SampleRing(RATE, 30, 1);
  ring.take(message(0, 1, [1, 2]));
  const copy = ring.snapshot();
  ring.take(message(2, 1 + 2 / RATE, [3]));
  assert.deepEqual(kept(copy).values, [1, 2]);
});

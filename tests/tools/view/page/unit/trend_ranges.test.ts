// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import test from 'node:test';
import { breathingRange, tachogramRange, trendWindow } from '../../../../../tools/view/page/src/trend_ranges';

test('a trend begins with the session and is five minutes long later', () => {
  assert.deepEqual(trendWindow(0), { min: 0, max: 60 });
  assert.deepEqual(trendWindow(100.2), { min: 0, max: 101 });
  assert.deepEqual(trendWindow(400), { min: 100, max: 400 });
});

test('the tachogram has room for all intervals, and is never so narrow that noise looks like variation', () => {
  assert.deepEqual(tachogramRange(null, null), [600, 1000]);
  assert.deepEqual(tachogramRange(810, 815), [700, 900]);
  assert.deepEqual(tachogramRange(612, 1190), [500, 1300]);
  assert.deepEqual(tachogramRange(5, 10), [0, 200]);
});

test('the breathing rate begins at zero', () => {
  assert.deepEqual(breathingRange(null, null), [0, 20]);
  assert.deepEqual(breathingRange(12, 17), [0, 20]);
  assert.deepEqual(breathingRange(12, 33), [0, 40]);
});

// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import test from 'node:test';
import { SessionClock } from '../../../../../tools/view/page/src/session_clock';

/** Frames of 1/60 s and a message each 0.2 s with a delay of `late`; returns the edges of the last seconds. */
function edges(clock: SessionClock, speed: number, seconds: number, late: (n: number) => number): number[] {
  const all: number[] = [];
  let words = 0;
  for (let frame = 0; frame < seconds * 60; ++frame) {
    const wall = 100 + frame / 60;
    while (words * 0.2 + late(words) <= frame / 60) {
      clock.observe(words * 0.2 * speed, wall);
      ++words;
    }
    all.push(clock.edge(wall));
  }
  return all;
}

for (const speed of [1, 10]) {
  test(`the edge moves evenly at speed ${speed} although messages arrive unevenly`, () => {
    const all = edges(new SessionClock(), speed, 20, (n) => (n % 3) * 0.02);
    const steps = all.slice(600).map((edge, i, rest) => (i === 0 ? speed / 60 : edge - rest[i - 1]));
    for (const step of steps) assert.ok(step > (0.5 * speed) / 60 && step < (1.5 * speed) / 60, `a step of ${step}`);
    const late = 19.98 * speed - (all.at(-1) as number);
    assert.ok(late > 0 && late < 0.5 * speed, `${late} s behind`);
  });
}

test('the edge never moves back', () => {
  const all = edges(new SessionClock(), 1, 20, (n) => (n % 5) * 0.1);
  assert.ok(all.every((edge, i) => i === 0 || edge >= all[i - 1]));
});

test('time stops when the program is silent', () => {
  const clock = new SessionClock();
  edges(clock, 1, 5, () => 0);
  clock.stop();
  const stopped = clock.at(105);
  assert.equal(clock.at(1000), stopped);
  clock.edge(106);
  assert.ok(clock.edge(1000) <= stopped);
});

test('time stops also without stop()', () => {
  const clock = new SessionClock();
  clock.observe(50, 100);
  assert.equal(clock.at(100.5), 50.5);
  assert.equal(clock.at(500), 51);
});

test('the edge jumps to a session that is far ahead', () => {
  const clock = new SessionClock();
  clock.observe(1, 100);
  clock.edge(100);
  clock.observe(100, 100.1);
  assert.ok(clock.edge(100.1) > 99);
});

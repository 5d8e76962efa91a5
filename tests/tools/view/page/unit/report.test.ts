// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { quoted, replayCommand } from '../../../../../tools/view/page/src/report/command';
import { alone, batterySeries, rowAt, successiveIntervals, withBreaks, withoutLink } from '../../../../../tools/view/page/src/report/data';
import { TimeAxis } from '../../../../../tools/view/page/src/report/time_axis';
import { Times } from '../../../../../tools/view/page/src/report/times';

test('a line is broken where rows are missing', () => {
  assert.deepEqual(withBreaks([1, 2, 5, 6], [[10, null, 30, 40]], 1.5), { x: [1, 2, 3.5, 5, 6], y: [[10, null, null, 30, 40]] });
  assert.deepEqual(withBreaks([], [[]], 1.5), { x: [], y: [[]] });
});

test('values without neighbours are found', () => {
  assert.deepEqual(alone([1, null, 2, 3, null, 4]), [0, 5]);
  assert.deepEqual(alone([7]), [0]);
});

test('pairs of NN intervals share a normal beat', () => {
  const rr = [null, 800, 810, 500, 900, 820, 830, null, 840, 850];
  //  the ectopic beat takes both its intervals out, a gap one
  assert.deepEqual(successiveIntervals({ t: rr.map((_one, i) => i), rr, class: 'nnnennnnnn' }), { x: [800, 820, 840], y: [810, 830, 850] });
});

test('the charge holds until the next report or the loss of the link', () => {
  const lost = [{ t: 5, event: 'link lost' as const, duration: 2 }];
  assert.deepEqual(batterySeries({ t: [1, 3, 8], charge: [90, 89, 88], charging: [0, 0, 0] }, lost, 10), { x: [1, 3, 5, 5.001, 8, 10], y: [[90, 89, 89, null, 88, 88]] });
  assert.deepEqual(batterySeries({ t: [], charge: [], charging: [] }, lost, 10), { x: [], y: [[]] });
});

test('there is no link before the first connection, and from a loss on', () => {
  assert.deepEqual(withoutLink([{ t: 1, event: 'connected' }, { t: 5, event: 'link lost' }, { t: 7, event: 'connected' }, { t: 9, event: 'link lost' }], 12), [
    { from: 0, to: 1 },
    { from: 5, to: 7 },
    { from: 9, to: 12 },
  ]);
  assert.deepEqual(withoutLink([], 3), [{ from: 0, to: 3 }]);
});

test('the row at a time is the last one before it', () => {
  assert.deepEqual([0, 1, 2.4, 2.6, 9].map((time) => rowAt([1, 2, 3], time, 0.5)), [-1, 0, 1, -1, -1]);
});

test('the span stays within the recording', () => {
  const axis = new TimeAxis(0, 100);
  axis.show(-20, 20);
  assert.deepEqual([axis.min, axis.max], [0, 40]);
  axis.pan(5);
  assert.deepEqual([axis.min, axis.max], [60, 100]);
  axis.zoom(100);
  assert.ok(axis.isWhole);
  axis.select(90);
  axis.zoom(0.1);
  assert.deepEqual([axis.min, axis.max], [81, 91]);
  axis.zoom(0.01);
  assert.equal(axis.max - axis.min, 5);
  axis.select(10);
  assert.ok(axis.min <= 10 && axis.max >= 10);
  axis.select(1000);
  assert.equal(axis.moment, 100);
});

test('times are those of the zone in the report', () => {
  const times = new Times({ began: Date.UTC(2026, 10, 23, 22, 30, 0), utcOffset: 3600, zone: 'CET' });
  assert.equal(times.zone, 'CET, UTC+1');
  assert.equal(times.clock(65), '23:31:05');
  assert.equal(times.date(0), '23 Nov 2026');
  assert.equal(times.date(1800), '24 Nov 2026');
  const splits = times.splits(0, 3600, 800, 100);
  assert.deepEqual(times.labels(splits), ['23:30', '23:40', '23:50', '24 Nov', '00:10', '00:20', '00:30']);
  assert.equal(new Times({ began: 0, utcOffset: -12600, zone: '-0330' }).zone, '-0330, UTC−3:30');
  assert.equal(new Times(null).clock(65), '1:05');
  assert.equal(new Times(null).date(0), null);
});

test('the command is right for a shell', () => {
  assert.equal(quoted('walk.zcap'), 'walk.zcap');
  assert.equal(quoted("anna's walk.zcap"), "'anna'\\''s walk.zcap'");
  assert.equal(quoted('-x.zcap'), './-x.zcap');
  assert.equal(quoted('$(rm).zcap'), "'$(rm).zcap'");
  assert.equal(replayCommand('a.zcap', 3725.9), 'zephly view --replay a.zcap --from 1:02:05');
});

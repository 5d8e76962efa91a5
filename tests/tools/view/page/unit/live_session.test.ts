// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import test from 'node:test';
import { LiveSession } from '../../../../../tools/view/page/src/live_session';
import { parseSamples, parseText, type Hello, type Samples, type State } from '../../../../../tools/view/page/src/protocol';
import { hello, samples, state } from '../messages.mjs';

const session = () => new LiveSession(hello() as Hello);
const ecg = (index: number, time: number, values: number[]) => parseSamples(samples('ecg', index, time, values)) as Samples;

test('announced losses are not counted again as gaps in the indexes', () => {
  const live = session();
  live.takeSamples(ecg(0, 0, [1]));
  live.takeLost({ type: 'lost', messages: 2, samples: { ecg: 10 } });
  live.takeSamples(ecg(11, 0.022, [1]));
  assert.equal(live.missed.ecg, 10);
  assert.equal(live.lostMessages, 2);
});

test('unannounced gaps in the indexes are counted', () => {
  const live = session();
  live.takeSamples(ecg(0, 0, [1]));
  live.takeSamples(ecg(5, 0.01, [1]));
  assert.equal(live.missed.ecg, 4);
});

test('an event that is sent again is added once', () => {
  const live = session();
  const event = { type: 'event', t: 3.5, event: 'jump' } as const;
  assert.ok(live.takeEvent(event));
  assert.equal(live.takeEvent({ ...event }), false);
  assert.deepEqual(live.repetitions, [{ t: 3.5, exercise: 'jump' }]);
});

test('events and states together give spans without a link', () => {
  const live = session();
  live.takeEvent({ type: 'event', t: 26.5, event: 'disconnected' });
  live.takeState(state({ now: 27, connected: false, linkChanged: 26.5 }) as State);
  assert.deepEqual(live.linkOff, [{ from: 26.5, to: null }]);
  live.takeEvent({ type: 'event', t: 28, event: 'connected' });
  live.takeState(state({ now: 28.1, connections: 2, linkChanged: 28 }) as State);
  assert.deepEqual(live.linkOff, [{ from: 26.5, to: 28 }]);
  live.takeState(state({ now: 100, connections: 2 }) as State);
  assert.deepEqual(live.linkOff, []);
});

test('scanning before the first link is not a lost link', () => {
  const live = session();
  live.takeState(state({ connected: false, connections: 0, linkChanged: null }) as State);
  assert.deepEqual(live.linkOff, []);
});

test('long sessions use bounded memory', () => {
  const live = session();
  for (let t = 0; t < 5000; ++t) {
    live.takeEvent({ type: 'event', t, event: 'jump' });
    live.takeEvent({ type: 'event', t, event: t % 2 === 0 ? 'electrodesOff' : 'electrodesOn' });
    live.takeState(state({ now: t, electrodesOff: t % 2 === 0 }) as State);
  }
  assert.ok(live.repetitions.length <= 200 && live.log.length <= 100 && live.electrodesOff.length < 40);
});

test('invalid messages are refused', () => {
  assert.throws(() => parseText('7'), /without a type/);
  assert.throws(() => parseText('{'));
  assert.throws(() => parseSamples(new ArrayBuffer(10)), /shorter/);
  const good = samples('ecg', 0, 0, [1, 2]);
  assert.throws(() => parseSamples(good.slice(0, 28)), /28 bytes/);
  const kind = good.slice(0);
  new DataView(kind).setUint8(0, 2);
  assert.throws(() => parseSamples(kind), /unknown kind 2/);
  const stream = good.slice(0);
  new DataView(stream).setUint8(1, 4);
  assert.throws(() => parseSamples(stream), /unknown stream 4/);
});

test('unknown messages of later versions are ignored', () => {
  assert.equal(parseText('{"type":"other"}'), null);
  assert.equal(parseText('{"type":"event","t":1,"event":"handstand"}'), null);
  assert.equal(parseText('{"type":"event","t":1,"event":"jump","height":2}')?.type, 'event');
});

test('samples are parsed as they were written', () => {
  const message = parseSamples(samples('motion', 2 ** 33, 12.25, [1.5, -2.5, 3.25, 4]));
  assert.deepEqual({ ...message, values: [...message.values] }, {
    type: 'samples', stream: 'motion', index: 2 ** 33, time: 12.25, count: 2, values: [1.5, -2.5, 3.25, 4],
  });
});

// SPDX-License-Identifier: MIT
// Builds messages of the program.

const COUNTED = [
  { name: 'ecg', title: 'ECG' },
  { name: 'temperature', title: 'temperature' },
  { name: 'battery', title: 'battery' },
];

const NUMBERS = { ecg: 0, filteredEcg: 1, respiration: 2, motion: 3 };

export function hello(changes = {}) {
  return {
    type: 'hello',
    protocol: 1,
    program: 'zephly 1.0',
    title: 'a strap of a test',
    pace: '',
    session: 'one',
    now: 10,
    historySeconds: 30,
    streams: {
      ecg: { rate: 500, low: -2.42, high: 2.42 },
      filteredEcg: { rate: 500, low: 0, high: 1 },
      respiration: { rate: 500, low: 0, high: 1 },
      motion: { rate: 30 },
    },
    counted: COUNTED,
    ...changes,
  };
}

export function state(changes = {}) {
  const stream = { received: 0, perSecond: 0, longestGap: null, missing: null, missingPercent: null };
  return {
    type: 'state',
    now: 10,
    connected: true,
    linkChanged: 0.02,
    connections: 1,
    disconnections: 0,
    linkLosses: [],
    electrodesOff: false,
    temperature: null,
    battery: null,
    vitals: null,
    repetitions: { pushUps: 0, sitUps: 0, jumps: 0 },
    streams: Object.fromEntries(COUNTED.map(({ name }) => [name, stream])),
    hostLine: '',
    ended: false,
    ...changes,
  };
}

/** The rates at the end of a second, both known. */
export function second(changes = {}) {
  return { t: 9, heartRate: 71.6, heartRateQuality: 0.974, breathingRate: 14.2, breathingQuality: 0.8, breathingDerived: false, ...changes };
}

export function beat(t, changes = {}) {
  return { t, rr: 0.8, class: 'normal', quality: 0.9, late: false, ...changes };
}

export function vitals(changes = {}) {
  return { type: 'vitals', beats: [], breaths: [], seconds: [], ...changes };
}

/** A message of samples as an ArrayBuffer; `values` are the samples' values, interleaved. */
export function samples(stream, index, time, values) {
  const message = new ArrayBuffer(24 + values.length * 4);
  const view = new DataView(message);
  view.setUint8(0, 1);
  view.setUint8(1, NUMBERS[stream]);
  view.setUint32(4, values.length / (stream === 'motion' ? 2 : 1), true);
  view.setBigUint64(8, BigInt(index), true);
  view.setFloat64(16, time, true);
  values.forEach((value, i) => view.setFloat32(24 + i * 4, value, true));
  return message;
}

// SPDX-License-Identifier: MIT
/**
 * The program's messages: JSON for latest values, events and counts, and binary messages for samples. An
 * invalid message is an error with a text for people.
 *
 * A binary message, little-endian: u8 kind (1), u8 stream, u16 reserved, u32 count, u64 index of the first
 * sample since the session began, f64 its time in seconds of the session, then count x f32 (motion:
 * count x 2 x f32).
 */

export const PROTOCOL = 1;

export const STREAMS = ['ecg', 'filteredEcg', 'respiration', 'motion'] as const;
export type StreamName = (typeof STREAMS)[number];

/** The number of values of one sample of a stream. */
export const WIDTH: Readonly<Record<StreamName, 1 | 2>> = { ecg: 1, filteredEcg: 1, respiration: 1, motion: 2 };

export interface StreamDescription {
  rate: number;
  low?: number;
  high?: number;
}

export interface Hello {
  type: 'hello';
  protocol: number;
  program: string;
  title: string;
  pace: string;
  session: string;
  now: number;
  historySeconds: number;
  streams: Record<StreamName, StreamDescription>;
  /** The strap's streams whose samples are counted in every state, in the order in which to show them. */
  counted: { name: string; title: string }[];
}

export interface LinkLoss {
  t: number;
  reason: string | null;
  recovery: number | null;
}

/** Degrees Celsius; null for NaN. */
export interface Temperature {
  object: number | null;
  ambient: number | null;
  /** Null until the estimate has settled. */
  body: number | null;
  /** The readings in the estimate: 20 when it has settled. */
  bodyReadings: number;
  t: number;
}

export const BEAT_CLASSES = ['normal', 'ectopic', 'artefact'] as const;
export type BeatClass = (typeof BEAT_CLASSES)[number];

/** Times on the axis of the samples, in seconds of the session; qualities from 0 to 1. */
export interface Beat {
  t: number;
  /** Seconds since the beat before it; null after a gap. */
  rr: number | null;
  class: BeatClass;
  quality: number;
  /** Found by searching back. */
  late: boolean;
}

export interface Breath {
  t: number;
  duration: number | null;
  depth: number;
  quality: number;
  /** From the ECG. */
  derived: boolean;
}

/** The rates at the end of a second, a minute; null: not known. */
export interface Second {
  t: number;
  heartRate: number | null;
  heartRateQuality: number;
  breathingRate: number | null;
  breathingQuality: number;
  /** From the ECG. */
  breathingDerived: boolean;
}

/** What is new since the last such message; the first one has the last five minutes. */
export interface Vitals {
  type: 'vitals';
  beats: Beat[];
  breaths: Breath[];
  seconds: Second[];
}

export interface StreamCount {
  received: number;
  perSecond: number | null;
  /** In seconds, within a link. */
  longestGap: number | null;
  /** The sum of all gaps in seconds, with a link or without, and as a percentage of the time since the first sample. */
  missing: number | null;
  missingPercent: number | null;
}

export interface State {
  type: 'state';
  now: number;
  connected: boolean;
  linkChanged: number | null;
  connections: number;
  disconnections: number;
  linkLosses: LinkLoss[];
  electrodesOff: boolean | null;
  temperature: Temperature | null;
  battery: { soc: number | null; inCharge: boolean } | null;
  /** Null without a link or contact, and when nothing is computed. */
  vitals: Second | null;
  repetitions: { pushUps: number; sitUps: number; jumps: number };
  streams: Record<string, StreamCount | undefined>;
  hostLine: string;
  ended: boolean;
}

export const EVENTS = [
  'connected',
  'disconnected',
  'electrodesOff',
  'electrodesOn',
  'pushUp',
  'sitUp',
  'jump',
  'diagnostic',
  'host',
] as const;
export type EventName = (typeof EVENTS)[number];

export interface SessionEvent {
  type: 'event';
  t: number;
  event: EventName;
  text?: string;
}

/** Samples dropped since the last such message, because this viewer was too slow. */
export interface Lost {
  type: 'lost';
  messages: number;
  samples: Partial<Record<StreamName, number>>;
}

export interface Samples {
  type: 'samples';
  stream: StreamName;
  index: number;
  time: number;
  count: number;
  /** `count` times WIDTH numbers; those of one sample are adjacent. */
  values: Float32Array;
}

export type Message = Hello | State | SessionEvent | Lost | Samples | Vitals;

const HEADER_BYTES = 24;
const SAMPLES_KIND = 1;
const TEXT_TYPES = ['hello', 'state', 'event', 'lost', 'vitals'];

/** Null for types and events that are unknown to this page: a later version may have more. */
export function parseText(text: string): Message | null {
  const message: unknown = JSON.parse(text);
  if (typeof message !== 'object' || message === null || !('type' in message)) throw new Error('a message without a type');
  if (!TEXT_TYPES.includes(String(message.type))) return null;
  if (message.type === 'event' && !EVENTS.includes((message as SessionEvent).event)) return null;
  return message as Message;
}

export function parseSamples(buffer: ArrayBuffer): Samples {
  if (buffer.byteLength < HEADER_BYTES) throw new Error('a sample message shorter than its header');
  const view = new DataView(buffer);
  const kind = view.getUint8(0);
  if (kind !== SAMPLES_KIND) throw new Error(`a binary message of the unknown kind ${kind}`);
  const stream = STREAMS[view.getUint8(1)];
  if (stream === undefined) throw new Error(`samples of the unknown stream ${view.getUint8(1)}`);
  const count = view.getUint32(4, true);
  if (buffer.byteLength !== HEADER_BYTES + count * WIDTH[stream] * 4) {
    throw new Error(`a sample message of ${buffer.byteLength} bytes that announces ${count} samples`);
  }
  return {
    type: 'samples',
    stream,
    index: Number(view.getBigUint64(8, true)),
    time: view.getFloat64(16, true),
    count,
    values: new Float32Array(buffer, HEADER_BYTES),
  };
}

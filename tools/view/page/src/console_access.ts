// SPDX-License-Identifier: MIT
/**
 * `window.zephly`: the data that this page has received, for tests and for the browser's console. All results
 * are copies.
 *
 *   zephly.samples('ecg').values        // Float32Array, the last half minute
 *   zephly.frames().work                // milliseconds for each of the last frames
 */

import type { Chart } from './charts';
import type { Connection, Phase } from './connection';
import type { FrameTimes } from './frame_times';
import type { LiveSession, LogLine } from './live_session';
import type { State, StreamName } from './protocol';
import type { TimeWindow } from './time_window';
import type { VitalsHistory } from './vitals_history';

export interface CopiedSamples {
  /** The index of each sample since the session began. */
  indexes: Float64Array;
  /** Seconds of the session. */
  times: Float64Array;
  /** The values of one sample are adjacent: motion has two. */
  values: Float32Array;
  /** The number received since the page was opened. */
  received: number;
}

export interface ConsoleAccess {
  phase(): Phase['kind'];
  /** The program's name of this session; null before its first message. */
  session(): string | null;
  state(): State | null;
  samples(stream: StreamName): CopiedSamples;
  vitals(): Pick<VitalsHistory, 'beats' | 'breaths' | 'seconds'>;
  /** The number of samples that this page has missed, by stream. */
  missed(): Record<StreamName, number>;
  events(): LogLine[];
  misunderstood(): number;
  window(): { edge: number; seconds: number; paused: boolean };
  /** The points of a stream that are drawn now: their times, and the gaps between them. */
  drawn(stream: StreamName): { times: Float64Array; values: Float64Array; gaps: [number, number][]; low: number; high: number };
  frames(): ReturnType<FrameTimes['copy']>;
}

export interface Insides {
  connection: Connection;
  session(): LiveSession | null;
  charts(): readonly Chart[];
  window: TimeWindow;
  edge(): number;
  frames: FrameTimes;
}

export function consoleAccess(inside: Insides): ConsoleAccess {
  return {
    phase: () => inside.connection.phase.kind,
    session: () => inside.session()?.hello.session ?? null,
    state: () => structuredClone(inside.session()?.state ?? null),
    samples: (stream) => copySamples(inside.session(), stream),
    vitals: () => {
      const { beats, breaths, seconds } = inside.session()?.vitals ?? { beats: [], breaths: [], seconds: [] };
      return structuredClone({ beats, breaths, seconds });
    },
    missed: () => ({ ecg: 0, filteredEcg: 0, respiration: 0, motion: 0, ...inside.session()?.missed }),
    events: () => structuredClone(inside.session()?.log ?? []),
    misunderstood: () => inside.connection.misunderstood,
    window: () => ({ edge: inside.edge(), seconds: inside.window.seconds, paused: inside.window.paused }),
    drawn: (stream) => copyDrawn(inside.charts(), stream),
    frames: () => inside.frames.copy(),
  };
}

function copySamples(session: LiveSession | null, stream: StreamName): CopiedSamples {
  const ring = session?.rings[stream];
  const length = ring === undefined ? 0 : ring.end - ring.begin;
  const width = ring?.width ?? 1;
  const copy = {
    indexes: new Float64Array(length),
    times: new Float64Array(length),
    values: new Float32Array(length * width),
    received: ring?.received ?? 0,
  };
  for (let i = 0; ring !== undefined && i < length; ++i) {
    const slot = (ring.begin + i) & ring.mask;
    copy.indexes[i] = ring.indexes[slot];
    copy.times[i] = ring.times[slot];
    for (let k = 0; k < width; ++k) copy.values[i * width + k] = ring.values[k][slot];
  }
  return copy;
}

function copyDrawn(charts: readonly Chart[], stream: StreamName): ReturnType<ConsoleAccess['drawn']> {
  const chart = charts.find((one) => one.stream === stream);
  if (chart === undefined) return { times: new Float64Array(), values: new Float64Array(), gaps: [], low: 0, high: 0 };
  const { reduction, gains } = chart.trace;
  const gaps: [number, number][] = [];
  for (let i = 0; i < reduction.gapCount; ++i) gaps.push([reduction.gapFrom[i], reduction.gapTo[i]]);
  return {
    times: reduction.x.slice(0, reduction.length),
    values: reduction.y[0].slice(0, reduction.length),
    gaps,
    low: gains[0].current.low,
    high: gains[0].current.high,
  };
}

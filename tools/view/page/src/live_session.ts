// SPDX-License-Identifier: MIT
/**
 * The data of the session: the samples of the last half minute, the vitals of the last minutes, the latest
 * state, and the times without link and without electrode contact.
 */

import { type Hello, type Lost, type Samples, type SessionEvent, type State, type StreamName, STREAMS, type Vitals, WIDTH } from './protocol';
import { SampleRing } from './sample_ring';
import { VitalsHistory } from './vitals_history';

/** From `from` to `to` in seconds of the session; null: not ended. */
export interface Interval {
  from: number;
  to: number | null;
}

export type Exercise = 'pushUp' | 'sitUp' | 'jump';

export interface Repetition {
  t: number;
  exercise: Exercise;
}

export interface LogLine {
  t: number;
  event: SessionEvent['event'];
  text: string;
}

/** A little more than the program keeps, so that the longest window is filled to its left edge. */
const KEPT_SECONDS = 32;
const KEPT_EVENTS = 200;
const KEPT_LINES = 100;

export type Rings = Readonly<Record<StreamName, SampleRing>>;

export class LiveSession {
  readonly rings: Rings;
  readonly vitals = new VitalsHistory();
  state: State | null = null;
  readonly linkOff: Interval[] = [];
  readonly electrodesOff: Interval[] = [];
  readonly repetitions: Repetition[] = [];
  readonly log: LogLine[] = [];
  /** Missing samples by stream: those announced by the program, and further gaps in the indexes. */
  readonly missed: Record<StreamName, number> = { ecg: 0, filteredEcg: 0, respiration: 0, motion: 0 };
  lostMessages = 0;
  /** Announced losses whose gap in the indexes has not been seen yet. */
  private readonly announced: Record<StreamName, number> = { ecg: 0, filteredEcg: 0, respiration: 0, motion: 0 };
  private readonly seen = new Set<string>();

  constructor(readonly hello: Hello) {
    const ring = (name: StreamName) => new SampleRing(hello.streams[name].rate, KEPT_SECONDS, WIDTH[name]);
    this.rings = {
      ecg: ring('ecg'),
      filteredEcg: ring('filteredEcg'),
      respiration: ring('respiration'),
      motion: ring('motion'),
    };
  }

  takeSamples(samples: Samples): void {
    const missing = this.rings[samples.stream].take(samples);
    if (missing === 0) return;
    const explained = Math.min(missing, this.announced[samples.stream]);
    this.announced[samples.stream] -= explained;
    this.missed[samples.stream] += missing - explained;
  }

  takeVitals(vitals: Vitals): void {
    this.vitals.take(vitals);
  }

  takeLost(lost: Lost): void {
    this.lostMessages += lost.messages;
    for (const name of STREAMS) {
      const samples = lost.samples[name] ?? 0;
      this.missed[name] += samples;
      this.announced[name] += samples;
    }
  }

  takeState(state: State): void {
    this.state = state;
    // Events give exact times; states are used when the events happened before this page was opened.
    setOff(this.linkOff, !state.connected && state.connections > 0, state.linkChanged ?? state.now);
    if (state.electrodesOff !== null) setOff(this.electrodesOff, state.electrodesOff, state.now);
    forget(this.linkOff, state.now - KEPT_SECONDS);
    forget(this.electrodesOff, state.now - KEPT_SECONDS);
  }

  /** False for a known event: the program sends the latest events again after a reconnection. */
  takeEvent(event: SessionEvent): boolean {
    const key = `${event.t} ${event.event} ${event.text ?? ''}`;
    if (this.seen.has(key)) return false;
    this.remember(key);
    switch (event.event) {
      case 'connected':
        setOff(this.linkOff, false, event.t);
        break;
      case 'disconnected':
        setOff(this.linkOff, true, event.t);
        break;
      case 'electrodesOff':
        setOff(this.electrodesOff, true, event.t);
        break;
      case 'electrodesOn':
        setOff(this.electrodesOff, false, event.t);
        break;
      case 'pushUp':
      case 'sitUp':
      case 'jump':
        this.repetitions.push({ t: event.t, exercise: event.event });
        if (this.repetitions.length > KEPT_EVENTS) this.repetitions.shift();
        break;
    }
    this.log.push({ t: event.t, event: event.event, text: event.text ?? '' });
    if (this.log.length > KEPT_LINES) this.log.shift();
    return true;
  }

  private remember(key: string): void {
    this.seen.add(key);
    if (this.seen.size <= 2 * KEPT_EVENTS) return;
    for (const oldest of this.seen) {
      this.seen.delete(oldest);
      if (this.seen.size <= KEPT_EVENTS) break;
    }
  }
}

function setOff(intervals: Interval[], off: boolean, time: number): void {
  const last = intervals.at(-1);
  const open = last !== undefined && last.to === null;
  if (off && !open) intervals.push({ from: time, to: null });
  if (!off && open) last.to = Math.max(last.from, time);
}

function forget(intervals: Interval[], before: number): void {
  while (intervals.length > 0 && intervals[0].to !== null && intervals[0].to < before) intervals.shift();
}

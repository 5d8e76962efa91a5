// SPDX-License-Identifier: MIT
/** The data of a report as the program wrote them into the document. Times in seconds since the session began. */

export type Column = (number | null)[];

/** Of a rate a minute; `known` is a share, 0..1. */
export interface Figures {
  median: number | null;
  lowest: number | null;
  highest: number | null;
  known: number;
}

/** Null: too few intervals. */
export interface Hrv {
  nn: number;
  share: number;
  meanNN: number | null;
  sdnn: number | null;
  rmssd: number | null;
  pnn50: number | null;
  sd1: number | null;
  sd2: number | null;
  lf: number | null;
  hf: number | null;
  lfOverHf: number | null;
}

export interface Window {
  from: number;
  to: number;
  heartRate: Figures;
  breathingRate: Figures;
  hrv: Hrv;
}

export interface Event {
  t: number;
  event: 'connected' | 'link lost' | 'electrodes off' | 'electrodes on' | 'push-up' | 'sit-up' | 'jump' | 'gap';
  duration?: number;
  stream?: string;
}

/** Some seconds of raw ECG, evenly spaced from `from` to `to`. */
export interface Strip {
  reason: 'clean' | 'lowest' | 'highest';
  from: number;
  to: number;
  heartRate: number | null;
  values: number[];
}

export interface ReportData {
  program: string;
  title: string;
  file: string;
  source: string;
  recordedBy: string;
  simulated: boolean;
  /** When the session began: milliseconds since 1970, and the seconds that local time was ahead of UTC. */
  clock: { began: number; utcOffset: number; zone: string } | null;
  duration: number;
  complaints: string[];
  vitals: {
    beats: { count: number; normal: number; ectopic: number; artefact: number };
    breaths: { count: number; derived: number };
    heartRate: Figures;
    breathingRate: Figures;
    hrv: Hrv;
  };
  contact: { share: number | null; intervals: { from: number; to: number; contact: boolean }[] };
  windows: Window[];
  /** One row for each second with samples, at its end. */
  seconds: {
    t: number[];
    heartRate: Column;
    heartRateQuality: number[];
    ecgQuality: number[];
    breathingRate: Column;
    breathingQuality: number[];
    breathingDerived: number[];
    respirationQuality: number[];
    contact: Column;
  };
  /** `class` has a letter for each beat: n, e or a. */
  beats: { t: number[]; rr: Column; class: string };
  temperature: { t: number[]; skin: Column; ambient: Column; body: Column };
  battery: { t: number[]; charge: number[]; charging: number[] };
  events: Event[];
  strips: Strip[];
}

/** Columns of numbers over time; a null breaks the line. */
export interface Series {
  x: number[];
  y: Column[];
}

/** Breaks the lines wherever two rows are further apart than `longest` seconds. */
export function withBreaks(t: readonly number[], columns: readonly Column[], longest: number): Series {
  const x: number[] = [];
  const y: Column[] = columns.map(() => []);
  t.forEach((time, i) => {
    if (i > 0 && time - t[i - 1] > longest) {
      x.push((time + t[i - 1]) / 2);
      y.forEach((column) => column.push(null));
    }
    x.push(time);
    columns.forEach((column, k) => y[k].push(column[i]));
  });
  return { x, y };
}

/** The indices of values between two nulls, which a line does not show. */
export function alone(y: Column): number[] {
  const found: number[] = [];
  y.forEach((value, i) => {
    if (value !== null && (y[i - 1] ?? null) === null && (y[i + 1] ?? null) === null) found.push(i);
  });
  return found;
}

/** Pairs of successive NN intervals: of three normal beats without a gap. */
export function successiveIntervals({ rr, class: kinds }: ReportData['beats']): { x: number[]; y: number[] } {
  const x: number[] = [];
  const y: number[] = [];
  for (let i = 2; i < rr.length; ++i) {
    const [before, now] = [rr[i - 1], rr[i]];
    if (before === null || now === null || kinds.slice(i - 2, i + 1) !== 'nnn') continue;
    x.push(before);
    y.push(now);
  }
  return { x, y };
}

/** The charge of the battery holds until the next report, and is not known without a link. */
export function batterySeries({ t, charge }: ReportData['battery'], events: readonly Event[], end: number): Series {
  const breaks = events.filter(({ event }) => event === 'link lost').map((event) => event.t);
  const x: number[] = [];
  const y: Column = [];
  const put = (time: number, value: number | null) => {
    x.push(time);
    y.push(value);
  };
  let next = 0;
  t.forEach((time, i) => {
    put(time, charge[i]);
    while (next < breaks.length && breaks[next] <= time) ++next;
    const until = t[i + 1] ?? Number.POSITIVE_INFINITY;
    if (next < breaks.length && breaks[next] < until) {
      put(breaks[next], charge[i]);
      put(breaks[next] + 1e-3, null);
    } else if (until === Number.POSITIVE_INFINITY && end > time) {
      put(end, charge[i]);
    }
  });
  return { x, y: [y] };
}

/** Times without a link, from the begin of the session on. */
export function withoutLink(events: readonly Event[], end: number): { from: number; to: number }[] {
  const intervals: { from: number; to: number }[] = [];
  let since: number | null = 0;
  for (const { t, event } of events) {
    if (event === 'connected' && since !== null) {
      if (t > since) intervals.push({ from: since, to: t });
      since = null;
    }
    if (event === 'link lost') since = t;
  }
  if (since !== null) intervals.push({ from: since, to: end });
  return intervals;
}

/** The index of the row at `time` or the last one before it; -1: there is none within `reach` seconds. */
export function rowAt(t: readonly number[], time: number, reach: number): number {
  let low = 0;
  let high = t.length;
  while (low < high) {
    const middle = Math.floor((low + high) / 2);
    if (t[middle] <= time) low = middle + 1;
    else high = middle;
  }
  return low > 0 && time - t[low - 1] <= reach ? low - 1 : -1;
}

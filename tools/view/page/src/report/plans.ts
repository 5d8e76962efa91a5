// SPDX-License-Identifier: MIT
/** The charts of the report over time. */

import uPlot from 'uplot';
import type { Repetition } from '../live_session';
import { drawBeat, drawExercise, type Ink } from '../marks';
import { colour } from '../theme';
import { breathingRange, tachogramRange } from '../trend_ranges';
import { duration, fixed, several } from '../words';
import { batterySeries, type Event, type Figures, type ReportData, rowAt, type Series, withBreaks, withoutLink } from './data';
import type { Interval, Plan } from './time_chart';

/** Rates and qualities come each second, temperatures too: a longer step is a gap. */
const STEP = 1.5;
const TEMPERATURE_STEP = 5;
/** A beat later than this after the one before has no interval. */
const BEAT_REACH = 3;

const BEAT_CLASSES = { n: 'normal', e: 'ectopic', a: 'artefact' } as const;
const EXERCISES = { 'push-up': 'pushUp', 'sit-up': 'sitUp', jump: 'jump' } as const;

export const percent = (share: number | null): string => (share === null ? '–' : `${(100 * share).toFixed(share > 0.995 && share < 1 ? 1 : 0)} %`);

/** "median 72 /min, from 51 to 130" */
export function figuresText({ median, lowest, highest }: Figures, digits: number): string {
  if (median === null) return 'not known';
  return `median ${fixed(median, digits)} /min, from ${fixed(lowest, digits)} to ${fixed(highest, digits)}`;
}

const capital = (text: string): string => text.charAt(0).toUpperCase() + text.slice(1);

function knownShare(data: ReportData, rate: 'heartRate' | 'breathingRate'): number {
  return data.duration > 0 ? Math.min(1, data.seconds[rate].filter((value) => value !== null).length / data.duration) : 0;
}

/** In whole tens around the values. */
function rateRange(low: number | null, high: number | null): [number, number] {
  if (low === null || high === null) return [40, 120];
  const bottom = Math.max(0, Math.floor((low - 2) / 10) * 10);
  return [bottom, Math.max(bottom + 20, Math.ceil((high + 2) / 10) * 10)];
}

function heartPlan(data: ReportData): Plan {
  const { seconds } = data;
  return {
    id: 'heart',
    title: 'Heart rate',
    unit: '/min',
    lines: [{ name: 'heart rate', colour: 'ecg' }],
    series: withBreaks(seconds.t, [seconds.heartRate], STEP),
    sentence: `${capital(figuresText(data.vitals.heartRate, 0))}; known for ${percent(knownShare(data, 'heartRate'))} of the recording.`,
    range: rateRange,
    readout: (t) => {
      const i = rowAt(seconds.t, t, STEP);
      const rate = i < 0 ? null : seconds.heartRate[i];
      return rate === null ? 'not known' : `${fixed(rate, 0)} /min, quality ${percent(seconds.heartRateQuality[i])}`;
    },
  };
}

function tachogramPlan(data: ReportData): Plan {
  const { t, rr, class: kinds } = data.beats;
  // An artefact is no beat: the line is broken there.
  const y = rr.map((interval, i) => (kinds[i] === 'a' ? null : interval));
  const { normal, ectopic, artefact } = data.vitals.beats;
  return {
    id: 'tachogram',
    title: 'RR intervals',
    unit: 'ms, from each beat to the next',
    lines: [{ name: 'RR', colour: 'ecg' }],
    legend: '◇ ectopic',
    series: withBreaks(t, [y], BEAT_REACH),
    sentence: `${several(data.vitals.beats.count, 'beat')}: ${normal} normal, ${ectopic} ectopic, ${several(artefact, 'artefact')}.`,
    range: tachogramRange,
    readout: (time) => {
      const i = rowAt(t, time, BEAT_REACH);
      if (i < 0) return 'no beat';
      return `${rr[i] === null ? '– ' : fixed(rr[i], 0)} ms, ${BEAT_CLASSES[kinds[i] as 'n' | 'e' | 'a']}`;
    },
    draw: (u, ink) => drawEctopic(u, ink, data.beats),
  };
}

/** Only ectopic beats: normal ones are the line. */
function drawEctopic(u: uPlot, ink: Ink, { t, rr, class: kinds }: ReportData['beats']): void {
  const { min, max } = u.scales['x'] as { min: number; max: number };
  const { top, height } = u.bbox;
  for (let i = kinds.indexOf('e'); i >= 0; i = kinds.indexOf('e', i + 1)) {
    const interval = rr[i];
    if (interval === null || t[i] < min || t[i] > max) continue;
    const y = Math.min(top + height - 6, Math.max(top + 6, u.valToPos(interval, 'y', true)));
    drawBeat(u.ctx, 'ectopic', u.valToPos(t[i], 'x', true), y, (max - min > 1800 ? 2.5 : 4) * devicePixelRatio, ink);
  }
}

function breathingPlan(data: ReportData): Plan {
  const { seconds } = data;
  const of = (derived: number) => seconds.breathingRate.map((rate, i) => (seconds.breathingDerived[i] === derived ? rate : null));
  const { count, derived } = data.vitals.breaths;
  const fromEcg = derived > 0 ? `, ${derived} of them from the ECG` : '';
  return {
    id: 'breathing',
    title: 'Breathing',
    unit: '/min',
    lines: [
      { name: 'from respiration', colour: 'respiration' },
      { name: 'from the ECG', colour: 'respiration', dashed: true },
    ],
    series: withBreaks(seconds.t, [of(0), of(1)], STEP),
    sentence: `${capital(figuresText(data.vitals.breathingRate, 1))}; known for ${percent(knownShare(data, 'breathingRate'))} of the recording. ${several(count, 'breath')}${fromEcg}.`,
    range: breathingRange,
    readout: (t) => {
      const i = rowAt(seconds.t, t, STEP);
      const rate = i < 0 ? null : seconds.breathingRate[i];
      if (rate === null) return 'not known';
      return `${fixed(rate, 1)} /min, quality ${percent(seconds.breathingQuality[i])}${seconds.breathingDerived[i] === 1 ? ', from the ECG' : ''}`;
    },
  };
}

/** The distance of the two lanes, whose height is 1. */
const LANE = 1.25;

function qualityPlan(data: ReportData): Plan {
  const { t, ecgQuality, respirationQuality } = data.seconds;
  const mean = (values: number[]) => (values.length === 0 ? null : values.reduce((sum, one) => sum + one, 0) / values.length);
  const raised = ecgQuality.map((quality) => LANE + quality);
  return {
    id: 'quality',
    title: 'Signal quality',
    unit: 'a full band is a clean signal',
    lines: [
      { name: 'ECG', colour: 'ecg', fillTo: LANE },
      { name: 'respiration', colour: 'respiration', fillTo: 0 },
    ],
    series: withBreaks(t, [raised, respirationQuality], STEP),
    sentence: `On average ${percent(mean(ecgQuality))} of the ECG and ${percent(mean(respirationQuality))} of the respiration while there were samples.`,
    range: () => [0, LANE + 1.05],
    labels: { at: [0.5, LANE + 0.5], text: ['resp.', 'ECG'] },
    readout: (time) => {
      const i = rowAt(t, time, STEP);
      return i < 0 ? 'no samples' : `ECG ${percent(ecgQuality[i])}, respiration ${percent(respirationQuality[i])}`;
    },
  };
}

interface Spans {
  colour: string;
  intervals: Interval[];
}

function lanesPlan(data: ReportData): Plan {
  const end = data.duration;
  const noLink = withoutLink(data.events, end);
  const link: Interval[] = [];
  let from = 0;
  for (const gap of [...noLink, { from: end, to: end }]) {
    if (gap.from > from) link.push({ from, to: gap.from });
    from = gap.to;
  }
  const skin = data.contact.intervals.filter(({ contact }) => contact);
  const repetitions = data.events.flatMap(({ t, event }) => (event in EXERCISES ? [{ t, exercise: EXERCISES[event as keyof typeof EXERCISES] }] : []));
  const off = data.contact.intervals.length - skin.length;
  const lanes: Spans[] = [
    { colour: 'respiration', intervals: skin },
    { colour: 'ecg', intervals: link },
  ];
  return {
    id: 'lanes',
    title: 'Link, electrodes and repetitions',
    unit: '',
    legend: '■ push-up ● sit-up ▲ jump',
    lines: [{ name: '', colour: 'ecg' }],
    series: { x: [0, end], y: [[null, null]] },
    sentence: `${linkText(data)} Electrodes on the skin for ${percent(data.contact.share)} of the recording${off > 0 ? `; off, or not yet on, ${several(off, 'time')}` : ''}. ${repetitionsText(data.events)}`,
    range: () => [0, 3],
    labels: { at: [0.5, 1.5, 2.5], text: ['skin', 'link', 'reps'] },
    readout: (t) => laneText(data, noLink, t),
    draw: (u, ink) => {
      lanes.forEach(({ colour, intervals }, i) => drawSpans(u, intervals, i + 0.2, i + 0.8, colour));
      drawLaneOfRepetitions(u, repetitions, ink);
    },
  };
}

function laneText(data: ReportData, noLink: readonly Interval[], t: number): string {
  if (noLink.some(({ from, to }) => t >= from && t < to)) return 'no link';
  const contact = data.contact.intervals.find(({ from, to }) => t >= from && t < to)?.contact;
  return `link, electrodes ${contact === undefined ? 'not known' : contact ? 'on the skin' : 'off'}`;
}

function drawSpans(u: uPlot, intervals: readonly Interval[], low: number, high: number, name: string): void {
  const { ctx, bbox } = u;
  const top = u.valToPos(high, 'y', true);
  const height = u.valToPos(low, 'y', true) - top;
  ctx.save();
  ctx.beginPath();
  ctx.rect(bbox.left, bbox.top, bbox.width, bbox.height);
  ctx.clip();
  ctx.fillStyle = colour(name);
  for (const { from, to } of intervals) {
    const left = u.valToPos(from, 'x', true);
    ctx.fillRect(left, top, Math.max(1, u.valToPos(to, 'x', true) - left), height);
  }
  ctx.restore();
}

/** A mark for each repetition: its shape, or, where they are too close, a thin line. */
function drawLaneOfRepetitions(u: uPlot, repetitions: readonly Repetition[], ink: Ink): void {
  const { min, max } = u.scales['x'] as { min: number; max: number };
  const shown = repetitions.filter(({ t }) => t >= min && t <= max);
  const r = 5 * devicePixelRatio;
  const close = u.bbox.width < 2.5 * r * shown.length;
  const y = u.valToPos(2.5, 'y', true);
  u.ctx.save();
  u.ctx.fillStyle = ink.strong;
  for (const { t, exercise } of shown) {
    const x = u.valToPos(t, 'x', true);
    if (close) u.ctx.fillRect(x - devicePixelRatio / 2, y - r, devicePixelRatio, 2 * r);
    else drawExercise(u.ctx, exercise, x, y, r);
  }
  u.ctx.restore();
}

export function linkText(data: ReportData): string {
  const losses = data.events.filter(({ event }) => event === 'link lost');
  if (!data.events.some(({ event }) => event === 'connected')) return 'Never connected.';
  if (losses.length === 0) return 'The link was never lost.';
  const lost = losses.reduce((sum, { duration: length }) => sum + (length ?? 0), 0);
  return `The link was lost ${several(losses.length, 'time')}, for ${duration(lost)} in all.`;
}

export function repetitionsText(events: readonly Event[]): string {
  const of = (kind: Event['event']) => events.filter(({ event }) => event === kind).length;
  const counts = (['push-up', 'sit-up', 'jump'] as const).map((kind) => [of(kind), kind] as const).filter(([n]) => n > 0);
  return counts.length === 0 ? 'No repetitions were counted.' : `${counts.map(([n, kind]) => several(n, kind)).join(', ')}.`;
}

function temperaturePlan(data: ReportData): Plan {
  const { t, skin, ambient, body } = data.temperature;
  const median = (values: (number | null)[]) => {
    const known = values.filter((value) => value !== null).sort((a, b) => a - b);
    return known.length === 0 ? '–' : `${known[Math.floor(known.length / 2)].toFixed(1)} °C`;
  };
  return {
    id: 'temperature',
    title: 'Temperature',
    unit: '°C',
    lines: [
      { name: 'skin', colour: 'displacement' },
      { name: 'ambient', colour: 'velocity' },
      { name: 'body (estimate)', colour: 'filteredEcg', dashed: true },
    ],
    series: withBreaks(t, [skin, ambient, body], TEMPERATURE_STEP),
    sentence: `Medians: skin ${median(skin)}, ambient ${median(ambient)}, body ${median(body)}, which is an estimate from both and not measured.`,
    range: (low, high) => (low === null || high === null ? [20, 40] : [Math.floor(low - 0.5), Math.ceil(high + 0.5)]),
    readout: (time) => {
      const i = rowAt(t, time, TEMPERATURE_STEP);
      if (i < 0) return 'not known';
      return `skin ${fixed(skin[i], 1)}, ambient ${fixed(ambient[i], 1)}, body ${fixed(body[i], 1)} °C`;
    },
  };
}

function batteryPlan(data: ReportData): Plan {
  const { t, charge, charging } = data.battery;
  const series: Series = batterySeries(data.battery, data.events, data.duration);
  const last = charge.length - 1;
  return {
    id: 'battery',
    title: 'Battery',
    unit: '%',
    lines: [{ name: 'charge', colour: 'displacement', stepped: true }],
    series,
    sentence: last < 0 ? 'Not reported.' : `From ${fixed(charge[0], 1)} % to ${fixed(charge[last], 1)} %${charging.includes(1) ? ', charging at times' : ''}. The strap reports changes.`,
    range: () => [0, 100],
    readout: (time) => {
      const i = rowAt(t, time, Number.POSITIVE_INFINITY);
      const at = rowAt(series.x, time, Number.POSITIVE_INFINITY);
      if (i < 0 || at < 0 || series.y[0][at] === null) return 'not known';
      return `${fixed(charge[i], 1)} %${charging[i] === 1 ? ', charging' : ''}`;
    },
  };
}

export function plans(data: ReportData): Plan[] {
  return [heartPlan(data), tachogramPlan(data), breathingPlan(data), qualityPlan(data), lanesPlan(data), temperaturePlan(data), batteryPlan(data)];
}

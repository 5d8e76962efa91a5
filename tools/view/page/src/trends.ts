// SPDX-License-Identifier: MIT
/** The charts of the last minutes: RR intervals and the breathing rate. */

import uPlot from 'uplot';
import { element } from './dom';
import { drawBeat, Ink } from './marks';
import type { Beat } from './protocol';
import { colour } from './theme';
import { AXIS_FONT, LEFT_AXIS, MARGIN } from './trace';
import { breathingRange, tachogramRange, trendWindow } from './trend_ranges';
import type { VitalsHistory } from './vitals_history';
import { clockTime } from './words';

interface TrendLine {
  name: string;
  colour: string;
  dashed: boolean;
}

/** What a trend shows; all functions get the history. */
interface TrendPlan {
  id: 'tachogram' | 'breathing';
  title: string;
  unit: string;
  lines: TrendLine[];
  data(history: VitalsHistory): uPlot.AlignedData;
  range(low: number | null, high: number | null): [number, number];
  /** For screen readers. */
  summary(history: VitalsHistory, from: number): string;
  /** The beats to mark on the line. */
  marks(history: VitalsHistory): readonly Beat[];
}

const TACHOGRAM: TrendPlan = {
  id: 'tachogram',
  title: 'RR intervals',
  unit: 'ms, last 5 minutes',
  lines: [{ name: 'RR', colour: 'ecg', dashed: false }],
  data: (history) => {
    const { x, y } = history.tachogram();
    return [x, y];
  },
  range: tachogramRange,
  summary: (history, from) => {
    const rr = history.beats.filter(({ t, rr, class: kind }) => t >= from && rr !== null && kind === 'normal').map((beat) => beat.rr as number);
    if (rr.length === 0) return 'none';
    const sorted = rr.sort((a, b) => a - b);
    const ms = (seconds: number) => `${Math.round(seconds * 1000)}`;
    return `${rr.length} intervals from ${ms(sorted[0])} to ${ms(sorted[rr.length - 1])} milliseconds, median ${ms(sorted[Math.floor(rr.length / 2)])}`;
  },
  marks: (history) => history.beats,
};

const BREATHING: TrendPlan = {
  id: 'breathing',
  title: 'Breathing rate',
  unit: '/min, last 5 minutes',
  lines: [
    { name: 'from respiration', colour: 'respiration', dashed: false },
    { name: 'from the ECG', colour: 'respiration', dashed: true },
  ],
  data: (history) => {
    const measured = history.breathing(false);
    return [measured.x, measured.y, history.breathing(true).y];
  },
  range: breathingRange,
  summary: (history, from) => {
    const rates = history.seconds.filter(({ t, breathingRate }) => t >= from && breathingRate !== null).map((second) => second.breathingRate as number);
    if (rates.length === 0) return 'not known';
    return `from ${Math.min(...rates).toFixed(0)} to ${Math.max(...rates).toFixed(0)} a minute, known for ${rates.length} seconds`;
  },
  marks: () => [],
};

class Trend {
  private readonly plot: uPlot;
  private readonly room = element('div', { className: 'room' });
  private ink = new Ink();
  private strokes: string[] = [];
  private history: VitalsHistory | null = null;
  private shown = '';

  constructor(
    private readonly plan: TrendPlan,
    parent: HTMLElement,
  ) {
    const panel = element(
      'section',
      { className: 'trend', ariaLabel: plan.title },
      element('header', { className: 'heading' }, element('h2', { textContent: plan.title }), element('p', { className: 'unit', textContent: plan.unit }), legend(plan)),
      this.room,
    );
    panel.dataset['trend'] = plan.id;
    parent.append(panel);
    this.takeColours();
    this.plot = new uPlot(this.options(), this.empty(), this.room);
    this.plot.ctx.canvas.setAttribute('role', 'img');
    new ResizeObserver(() => this.fit()).observe(this.room);
    this.fit();
  }

  takeColours(): void {
    this.ink = new Ink();
    this.strokes = this.plan.lines.map((line) => colour(line.colour));
    this.shown = '';
  }

  /** Shows the minutes up to `now`, once a second. */
  show(history: VitalsHistory, now: number): void {
    const { min: begin, max: end } = trendWindow(now);
    const key = `${history.version} ${end}`;
    if (this.shown === key) return;
    this.shown = key;
    this.history = history;
    const data = this.plan.data(history);
    this.plot.batch(() => {
      this.plot.setData(data[0].length > 0 ? data : this.empty(), false);
      this.plot.setScale('x', { min: begin, max: end });
      const [min, max] = this.plan.range(...extremes(data, begin));
      this.plot.setScale('y', { min, max });
    });
    this.plot.ctx.canvas.setAttribute('aria-label', `${this.plan.title}, last 5 minutes: ${this.plan.summary(history, begin)}`);
  }

  // uPlot needs a point to draw: it is far to the left of all others.
  private empty(): uPlot.AlignedData {
    return [[-1e9, -1e9 + 1], ...this.plan.lines.map(() => [0, 0])];
  }

  private fit(): void {
    const { clientWidth: width, clientHeight: height } = this.room;
    if (width > 0 && height > 0 && (width !== this.plot.width || height !== this.plot.height)) this.plot.setSize({ width, height });
  }

  private options(): uPlot.Options {
    const range: uPlot.Range.Function = (_u, low, high) => [low ?? 0, high ?? 1];
    const axis = { font: AXIS_FONT, gap: 4, stroke: () => this.ink.text, grid: { stroke: () => this.ink.bold, width: 1 }, ticks: { show: false } };
    return {
      width: 300,
      height: 100,
      pxAlign: 0,
      padding: [8, MARGIN + 12, 0, MARGIN],
      legend: { show: false },
      cursor: { show: false },
      scales: { x: { time: false, range }, y: { auto: false, range } },
      axes: [
        { ...axis, size: 26, splits: (_u, _axis, min, max) => roundTimes(min, max), values: (_u, splits) => splits.map(clockTime) },
        { ...axis, scale: 'y', size: LEFT_AXIS, space: 24 },
      ],
      series: [
        {},
        ...this.plan.lines.map((line, i) => ({
          scale: 'y',
          auto: false,
          stroke: () => this.strokes[i],
          width: 1.75,
          ...(line.dashed ? { dash: [5, 4] } : {}),
          points: { show: false },
        })),
      ],
      hooks: { draw: [(u) => this.drawMarks(u)] },
    };
  }

  // Normal beats are the line itself.
  private drawMarks(u: uPlot): void {
    if (this.history === null) return;
    const { min } = u.scales['x'] as { min: number };
    for (const { t, rr, class: kind } of this.plan.marks(this.history)) {
      if (t < min || rr === null || kind === 'normal') continue;
      const { top, height } = u.bbox;
      const y = Math.min(top + height - 6, Math.max(top + 6, u.valToPos(rr * 1000, 'y', true)));
      drawBeat(u.ctx, kind, u.valToPos(t, 'x', true), y, 4 * devicePixelRatio, this.ink);
    }
  }
}

function legend(plan: TrendPlan): HTMLElement {
  const list = element('p', { className: 'unit legend' });
  if (plan.id === 'tachogram') {
    list.append(element('span', { textContent: '● normal' }), element('span', { textContent: '◇ ectopic' }), element('span', { textContent: '✕ artefact' }));
    return list;
  }
  for (const line of plan.lines) {
    const sample = element('span', { className: line.dashed ? 'sample dashed' : 'sample' });
    sample.dataset['colour'] = line.colour;
    list.append(element('span', {}, sample, line.name));
  }
  return list;
}

/** The lowest and the highest value from `from` on. */
function extremes(data: uPlot.AlignedData, from: number): [number | null, number | null] {
  const [x, ...lines] = data;
  let low: number | null = null;
  let high: number | null = null;
  for (const line of lines) {
    for (let i = 0; i < x.length; ++i) {
      const value = line[i];
      if (x[i] < from || value === null || value === undefined) continue;
      low = Math.min(low ?? value, value);
      high = Math.max(high ?? value, value);
    }
  }
  return [low, high];
}

/** Round times since the session began. */
function roundTimes(min: number, max: number): number[] {
  const step = max - min > 180 ? 60 : max - min > 90 ? 30 : 15;
  const splits: number[] = [];
  for (let n = Math.ceil(min / step); n * step <= max; ++n) splits.push(n * step);
  return splits;
}

export class Trends {
  private readonly trends: readonly Trend[];

  constructor(parent: HTMLElement) {
    parent.replaceChildren();
    this.trends = [TACHOGRAM, BREATHING].map((plan) => new Trend(plan, parent));
  }

  takeColours(): void {
    for (const trend of this.trends) trend.takeColours();
  }

  show(history: VitalsHistory, now: number): void {
    for (const trend of this.trends) trend.show(history, now);
  }
}

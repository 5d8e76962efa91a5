// SPDX-License-Identifier: MIT
/** The charts without the common time axis: the Poincaré plot and the strips of ECG. */

import uPlot from 'uplot';
import { element } from '../dom';
import { drawBeats, drawFinePaper, Ink } from '../marks';
import type { Beat } from '../protocol';
import { colour } from '../theme';
import { AXIS_FONT } from '../trace';
import { fixed } from '../words';
import { type ReportData, type Strip, successiveIntervals } from './data';
import { LEFT } from './time_chart';
import type { Times } from './times';

const CLASSES = { n: 'normal', e: 'ectopic', a: 'artefact' } as const;
const REASONS: Record<Strip['reason'], string> = {
  clean: 'The first clean ten seconds',
  lowest: 'At the lowest heart rate',
  highest: 'At the highest heart rate',
};

/** A panel with a plot that fills it. */
class StillChart {
  ink = new Ink();
  stroke = '';
  private readonly room = element('div', { className: 'room' });
  private readonly plot: uPlot;

  constructor(id: string, title: string, unit: string, sentence: string, options: (chart: StillChart) => Omit<uPlot.Options, 'width' | 'height'>, data: uPlot.AlignedData, parent: HTMLElement) {
    const panel = element(
      'section',
      { className: 'chart still', ariaLabel: title },
      element('header', {}, element('h2', { textContent: title }), element('p', { className: 'unit', textContent: unit })),
      element('p', { className: 'sentence', textContent: sentence }),
      this.room,
    );
    panel.dataset['chart'] = id;
    parent.append(panel);
    this.takeColours();
    this.plot = new uPlot({ width: 300, height: 100, legend: { show: false }, cursor: { show: false }, ...options(this) }, data, this.room);
    this.plot.ctx.canvas.setAttribute('role', 'img');
    this.plot.ctx.canvas.setAttribute('aria-label', `${title}: ${sentence}`);
    new ResizeObserver(() => this.fit()).observe(this.room);
    this.fit();
  }

  takeColours(): void {
    this.ink = new Ink();
    this.stroke = colour('ecg');
  }

  fit(): void {
    const { clientWidth: width, clientHeight: height } = this.room;
    if (width > 0 && height > 0 && (width !== this.plot.width || height !== this.plot.height)) this.plot.setSize({ width, height });
    else this.plot.redraw(false);
  }
}

export type { StillChart };

export function poincare(data: ReportData, parent: HTMLElement): StillChart {
  const { x, y } = successiveIntervals(data.beats);
  let low = 600;
  let high = 1000;
  if (x.length > 0) {
    const all = [...x, ...y].sort((a, b) => a - b);
    low = Math.floor((all[0] - 20) / 100) * 100;
    high = Math.ceil((all[all.length - 1] + 20) / 100) * 100;
  }
  const { sd1, sd2 } = data.vitals.hrv;
  const mean = x.length === 0 ? 0 : x.reduce((sum, one) => sum + one, 0) / x.length;
  const sentence = x.length === 0 ? 'No successive NN intervals.' : `${x.length} pairs of successive NN intervals: SD1 ${fixed(sd1, 1)} ms, SD2 ${fixed(sd2, 1)} ms.`;
  const range: uPlot.Range.Function = () => [low, high];
  const axis = (chart: StillChart) => ({ font: AXIS_FONT, gap: 4, stroke: () => chart.ink.text, ticks: { show: false }, grid: { stroke: () => chart.ink.bold, width: 1 } });
  return new StillChart(
    'poincare',
    'Poincaré plot',
    'ms: each NN interval against the one before it',
    sentence,
    (chart) => ({
      padding: [10, 16, 0, 0],
      scales: { x: { time: false, range }, y: { range } },
      axes: [
        { ...axis(chart), size: 26, space: 50 },
        { ...axis(chart), scale: 'y', size: LEFT, space: 26 },
      ],
      series: [{}, { scale: 'y', paths: () => null, points: { show: false } }],
      hooks: {
        draw: [
          (u) => {
            const { ctx, bbox } = u;
            ctx.save();
            ctx.beginPath();
            ctx.rect(bbox.left, bbox.top, bbox.width, bbox.height);
            ctx.clip();
            drawIdentity(u, low, high, chart.ink);
            drawPairs(u, x, y, chart.stroke);
            if (sd1 !== null && sd2 !== null) drawEllipse(u, mean, sd1, sd2, chart.ink);
            ctx.restore();
          },
        ],
      },
    }),
    [
      [low, high],
      [low, high],
    ],
    parent,
  );
}

function drawIdentity(u: uPlot, low: number, high: number, ink: Ink): void {
  u.ctx.setLineDash([5 * devicePixelRatio, 5 * devicePixelRatio]);
  u.ctx.strokeStyle = ink.text;
  u.ctx.lineWidth = devicePixelRatio;
  u.ctx.beginPath();
  u.ctx.moveTo(u.valToPos(low, 'x', true), u.valToPos(low, 'y', true));
  u.ctx.lineTo(u.valToPos(high, 'x', true), u.valToPos(high, 'y', true));
  u.ctx.stroke();
}

function drawPairs(u: uPlot, x: readonly number[], y: readonly number[], stroke: string): void {
  const r = (x.length > 5000 ? 1 : 1.5) * devicePixelRatio;
  u.ctx.fillStyle = stroke;
  u.ctx.globalAlpha = x.length > 5000 ? 0.25 : 0.55;
  x.forEach((value, i) => u.ctx.fillRect(u.valToPos(value, 'x', true) - r, u.valToPos(y[i], 'y', true) - r, 2 * r, 2 * r));
  u.ctx.globalAlpha = 1;
}

/** Across the line of identity SD1, along it SD2. */
function drawEllipse(u: uPlot, mean: number, sd1: number, sd2: number, ink: Ink): void {
  const point = (angle: number): [number, number] => {
    const along = sd2 * Math.cos(angle) * Math.SQRT1_2;
    const across = sd1 * Math.sin(angle) * Math.SQRT1_2;
    return [u.valToPos(mean + along - across, 'x', true), u.valToPos(mean + along + across, 'y', true)];
  };
  u.ctx.setLineDash([]);
  u.ctx.strokeStyle = ink.strong;
  u.ctx.lineWidth = 2 * devicePixelRatio;
  u.ctx.beginPath();
  for (let i = 0; i <= 60; ++i) u.ctx.lineTo(...point((i / 30) * Math.PI));
  u.ctx.stroke();
}

function beatsWithin({ t, rr, class: kinds }: ReportData['beats'], from: number, to: number): Beat[] {
  const found: Beat[] = [];
  t.forEach((time, i) => {
    if (time < from || time > to) return;
    found.push({ t: time - from, rr: rr[i], class: CLASSES[kinds[i] as 'n' | 'e' | 'a'], quality: 1, late: false });
  });
  return found;
}

export function strip(data: ReportData, one: Strip, times: Times, parent: HTMLElement): StillChart {
  const { from, to, values } = one;
  const length = to - from;
  const x = values.map((_value, i) => (length * i) / (values.length - 1));
  const beats = beatsWithin(data.beats, from, to);
  const rate = one.heartRate === null ? '' : `, ${fixed(one.heartRate, 0)} /min`;
  return new StillChart(
    `strip-${one.reason}`,
    REASONS[one.reason],
    `raw ECG from ${times.clock(from)}${rate}`,
    `${beats.length} beats in ${length.toFixed(0)} seconds.`,
    (chart) => ({
      padding: [16, 16, 0, 0],
      scales: { x: { time: false, range: () => [0, length] }, y: { auto: true } },
      axes: [
        { font: AXIS_FONT, gap: 4, size: 26, stroke: () => chart.ink.text, ticks: { show: false }, grid: { stroke: () => chart.ink.bold, width: 1 }, space: 50, values: (_u, splits) => splits.map((t) => `${t} s`) },
        { font: AXIS_FONT, gap: 4, scale: 'y', size: LEFT, space: 26, stroke: () => chart.ink.text, ticks: { show: false }, grid: { stroke: () => chart.ink.bold, width: 1 } },
      ],
      series: [{}, { scale: 'y', stroke: () => chart.stroke, width: 1.25, points: { show: false } }],
      hooks: { drawClear: [(u) => drawFinePaper(u, length, chart.ink)], draw: [(u) => drawBeats(u, beats, chart.ink)] },
    }),
    [x, values],
    parent,
  );
}

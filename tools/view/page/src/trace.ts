// SPDX-License-Identifier: MIT
/** One chart: a stream's samples over time, with a gain. */

import uPlot from 'uplot';
import { Gain, type Range } from './gain';
import type { Interval, Repetition } from './live_session';
import { drawBand, drawBeats, drawFinePaper, drawIntervals, drawRepetitions, Ink, paper } from './marks';
import type { Beat } from './protocol';
import { Reduction } from './reduction';
import type { SampleRing } from './sample_ring';
import { colour } from './theme';

export interface Line {
  /** The index of the value in a sample. */
  value: 0 | 1;
  /** The colour's name in colours.css. */
  colour: string;
  dashed: boolean;
  /** The range from bottom to top at gain 1. */
  full: Range;
  symmetric: boolean;
  auto: boolean;
}

export interface Band {
  line: number;
  low: number;
  high: number;
}

/** Everything drawn in a frame besides samples. Times in seconds of the session. */
export interface Context {
  now: number;
  linkOff: readonly Interval[];
  electrodesOff: readonly Interval[];
  repetitions: readonly Repetition[];
  beats: readonly Beat[];
}

const NOTHING: Context = { now: 0, linkOff: [], electrodesOff: [], repetitions: [], beats: [] };
export const AXIS_FONT = '12px system-ui, sans-serif';
/** In pixels. Every chart leaves the room of a right axis, so that the time axes of all charts are aligned. */
export const LEFT_AXIS = 48;
export const RIGHT_AXIS = 40;
export const MARGIN = 4;

export class Trace {
  readonly gains: readonly Gain[];
  readonly reduction: Reduction;
  private readonly plot: uPlot;
  private ink = new Ink();
  private strokes: string[] = [];
  private context = NOTHING;
  private seconds = 10;
  private readonly noData: uPlot.AlignedData;

  constructor(
    private readonly room: HTMLElement,
    private readonly lines: readonly Line[],
    private readonly band: Band | null,
  ) {
    this.gains = lines.map((line) => new Gain(line.full, line.symmetric, line.auto));
    this.reduction = new Reduction(lines.length === 2 ? 2 : 1);
    // uPlot needs a point to draw: it is far to the left of all others.
    this.noData = [[-1e9, -1e9 + 1], ...lines.map(() => [0, 0])];
    this.takeColours();
    this.plot = new uPlot(this.options(), this.noData, room);
    new ResizeObserver(() => this.fit()).observe(room);
    this.fit();
  }

  get over(): HTMLElement {
    return this.plot.over;
  }

  get canvas(): HTMLCanvasElement {
    return this.plot.ctx.canvas;
  }

  takeColours(): void {
    this.ink = new Ink();
    this.strokes = this.lines.map((line) => colour(line.colour));
  }

  /** Shows `seconds` up to `edge`; `wall` in seconds, for auto gain. */
  draw(ring: SampleRing | null, edge: number, seconds: number, wall: number, context: Context): void {
    this.context = context;
    this.seconds = seconds;
    const from = edge - seconds;
    const { reduction, plot } = this;
    if (ring !== null) reduction.fill(ring, from, edge, plot.bbox.width);
    const some = ring !== null && reduction.length > 0;
    if (some) this.lines.forEach(({ value }, i) => this.gains[i].see(reduction.low[value], reduction.high[value], wall));
    plot.batch(() => {
      plot.setData(some ? this.data() : this.noData, false);
      plot.setScale('x', { min: from, max: edge });
      this.gains.forEach(({ current }, i) => {
        const scale = plot.scales[`y${i}`];
        if (scale.min !== current.low || scale.max !== current.high) plot.setScale(`y${i}`, { min: current.low, max: current.high });
      });
    });
  }

  /** Seconds of the session under a pixel of the page. */
  timeAt(clientX: number): number {
    return this.plot.posToVal(clientX - this.plot.over.getBoundingClientRect().left, 'x');
  }

  private data(): uPlot.AlignedData {
    const { x, y, length } = this.reduction;
    return [x.subarray(0, length), ...this.lines.map(({ value }) => y[value].subarray(0, length))];
  }

  private fit(): void {
    const width = this.room.clientWidth;
    const height = this.room.clientHeight;
    if (width > 0 && height > 0 && (width !== this.plot.width || height !== this.plot.height)) this.plot.setSize({ width, height });
  }

  private options(): uPlot.Options {
    const range: uPlot.Range.Function = (_u, low, high) => [low ?? 0, high ?? 1];
    const scales: uPlot.Scales = { x: { time: false, range } };
    this.lines.forEach((_line, i) => {
      scales[`y${i}`] = { auto: false, range };
    });
    return {
      width: 300,
      height: 120,
      pxAlign: 0,
      padding: [8, MARGIN + (this.lines.length > 1 ? 0 : RIGHT_AXIS), 0, MARGIN],
      legend: { show: false },
      cursor: { x: true, y: false, points: { show: false }, drag: { x: false, y: false, setScale: false } },
      scales,
      axes: [this.timeAxis(), ...this.lines.map((_line, i) => this.valueAxis(i))],
      series: [{}, ...this.lines.map((line, i) => this.series(line, i))],
      hooks: {
        drawClear: [
          (u) => {
            drawFinePaper(u, this.seconds, this.ink);
            if (this.band !== null) drawBand(u, `y${this.band.line}`, this.band.low, this.band.high, this.ink);
          },
        ],
        draw: [
          (u) => {
            const { electrodesOff, linkOff, repetitions, beats, now } = this.context;
            drawIntervals(u, electrodesOff, 'electrodes off', this.ink, now);
            drawIntervals(u, linkOff, 'no link', this.ink, now);
            drawRepetitions(u, repetitions, this.ink);
            drawBeats(u, beats, this.ink);
          },
        ],
      },
    };
  }

  private timeAxis(): uPlot.Axis {
    return {
      font: AXIS_FONT,
      size: 26,
      gap: 4,
      stroke: () => this.ink.text,
      grid: { stroke: () => this.ink.bold, width: 1 },
      ticks: { show: false },
      splits: (_u, _axis, min, max) => timeSplits(this.seconds, min, max),
      values: (u, splits) => timeLabels(this.seconds, splits, u.width),
    };
  }

  private valueAxis(i: number): uPlot.Axis {
    return {
      scale: `y${i}`,
      side: i === 0 ? 3 : 1,
      font: AXIS_FONT,
      size: i === 0 ? LEFT_AXIS : RIGHT_AXIS,
      gap: 4,
      space: 24,
      stroke: () => (this.lines.length > 1 ? this.strokes[i] : this.ink.text),
      grid: i === 0 ? { stroke: () => this.ink.bold, width: 1 } : { show: false },
      ticks: { show: false },
    };
  }

  private series(line: Line, i: number): uPlot.Series {
    return {
      scale: `y${i}`,
      auto: false,
      stroke: () => this.strokes[i],
      width: 1.75,
      ...(line.dashed ? { dash: [5, 4] } : {}),
      points: { show: false },
      gaps: (u) => this.gaps(u),
    };
  }

  private gaps(u: uPlot): uPlot.Series.Gaps {
    const { gapCount, gapFrom, gapTo } = this.reduction;
    const gaps: uPlot.Series.Gaps = [];
    for (let i = 0; i < gapCount; ++i) gaps.push([u.valToPos(gapFrom[i], 'x', true), u.valToPos(gapTo[i], 'x', true)]);
    return gaps;
  }
}

function timeSplits(seconds: number, min: number, max: number): number[] {
  const step = paper(seconds).bold;
  const splits: number[] = [];
  // No times before the session began.
  for (let n = Math.max(0, Math.ceil(min / step)); n * step <= max; ++n) splits.push(n * step);
  return splits;
}

/** At most one label each 60 pixels. */
function timeLabels(seconds: number, splits: readonly number[], width: number): (string | null)[] {
  const step = paper(seconds).bold;
  let every = 1;
  while ((width * step * every) / seconds < 60) every = every === 1 ? 2 : every === 2 ? 5 : every * 2;
  const digits = step * every < 1 ? 1 : 0;
  return splits.map((t) => (Math.round(t / step) % every === 0 ? `${t.toFixed(digits)} s` : null));
}

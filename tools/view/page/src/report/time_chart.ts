// SPDX-License-Identifier: MIT
/** A chart over the common time axis of the report. */

import uPlot from 'uplot';
import { element, setText } from '../dom';
import { drawIntervals, Ink } from '../marks';
import { colour } from '../theme';
import { AXIS_FONT } from '../trace';
import { alone, type Series } from './data';
import type { TimeAxis } from './time_axis';
import type { Times } from './times';

/** In pixels: room for the names of lanes. */
export const LEFT = 64;
const RIGHT = 16;

export interface Line {
  name: string;
  /** The colour's name in colours.css. */
  colour: string;
  dashed?: boolean;
  stepped?: boolean;
  /** The area between the line and this value is filled. */
  fillTo?: number;
}

export interface Interval {
  from: number;
  to: number;
}

export interface Plan {
  id: string;
  title: string;
  unit: string;
  lines: Line[];
  series: Series;
  /** What the chart shows, in words. */
  sentence: string;
  /** The range of the values for what is visible. */
  range(low: number | null, high: number | null): [number, number];
  /** The values at a time, as text. */
  readout(t: number): string;
  /** The values with a label, and their labels; default: round ones. */
  labels?: { at: number[]; text: string[] };
  /** Draws more than lines. */
  draw?(u: uPlot, ink: Ink): void;
  /** More about the lines than their names. */
  legend?: string;
}

/** Hatched in each chart. */
export interface Unknown {
  noLink: Interval[];
  electrodesOff: Interval[];
}

export class TimeChart {
  readonly panel: HTMLElement;
  private readonly plot: uPlot;
  private readonly room = element('div', { className: 'room' });
  private readonly value = element('p', { className: 'readout figure' });
  private ink = new Ink();
  private strokes: string[] = [];
  private dragged = false;
  private stale = false;

  constructor(
    private readonly plan: Plan,
    private readonly axis: TimeAxis,
    private readonly times: Times,
    private readonly unknown: Unknown | null,
    parent: HTMLElement,
  ) {
    this.panel = element(
      'section',
      { className: 'chart', tabIndex: 0, ariaLabel: `${plan.title}. ${plan.sentence} Arrow keys move the selected moment.` },
      element('header', {}, element('h2', { textContent: plan.title }), element('p', { className: 'unit', textContent: plan.unit }), legend(plan), this.value),
      element('p', { className: 'sentence', textContent: plan.sentence }),
      this.room,
    );
    this.panel.dataset['chart'] = plan.id;
    parent.append(this.panel);
    this.takeColours();
    const { x, y } = plan.series;
    // uPlot needs points to draw an empty chart: they are far to the left.
    const data: uPlot.AlignedData = x.length > 0 ? [x, ...y] : [[-1e9, -1e9 + 1], ...plan.lines.map(() => [0, 0])];
    this.plot = new uPlot(this.options(), data, this.room);
    const { canvas } = this.plot.ctx;
    canvas.setAttribute('role', 'img');
    canvas.setAttribute('aria-label', `${plan.title}: ${plan.sentence}`);
    this.plot.over.addEventListener('click', (event) => this.click(event));
    new ResizeObserver(() => this.fit()).observe(this.room);
    axis.follow(() => this.redrawSoon());
    this.fit();
  }

  /** After a change of the theme. */
  takeColours(): void {
    this.ink = new Ink();
    this.strokes = this.plan.lines.map((line) => colour(line.colour));
  }

  /** Draws at once, in the room that there is. */
  fit(): void {
    const { clientWidth: width, clientHeight: height } = this.room;
    if (width > 0 && height > 0 && (width !== this.plot.width || height !== this.plot.height)) this.plot.setSize({ width, height });
    this.redraw();
  }

  redraw(): void {
    this.stale = false;
    this.plot.setScale('x', { min: this.axis.min, max: this.axis.max });
    this.plot.redraw(false);
    this.showValue(this.axis.moment);
  }

  private redrawSoon(): void {
    if (this.stale) return;
    this.stale = true;
    requestAnimationFrame(() => {
      if (this.stale) this.redraw();
    });
  }

  private click(event: MouseEvent): void {
    if (this.dragged) {
      this.dragged = false;
      return;
    }
    this.axis.select(this.plot.posToVal(event.clientX - this.plot.over.getBoundingClientRect().left, 'x'));
  }

  private showValue(t: number | null): void {
    setText(this.value, t === null ? '' : `${this.times.clock(t)}: ${this.plan.readout(t)}`);
  }

  private options(): uPlot.Options {
    const { plan, axis, times } = this;
    const grid = { stroke: () => this.ink.bold, width: 1 };
    const common = { font: AXIS_FONT, gap: 4, stroke: () => this.ink.text, ticks: { show: false } };
    const { labels } = plan;
    return {
      width: 300,
      height: 100,
      padding: [10, RIGHT, 0, 0],
      legend: { show: false },
      cursor: {
        y: false,
        points: { show: false },
        drag: { x: true, y: false, setScale: false, dist: 5 },
        sync: { key: 'report' },
        bind: {
          dblclick: () => () => {
            axis.showWhole();
            return null;
          },
        },
      },
      scales: {
        x: { time: false, range: (_u, low, high) => [low ?? 0, high ?? 1] },
        y: { auto: true, range: (_u, low, high) => plan.range(low, high) },
      },
      axes: [
        { ...common, grid, size: 26, splits: (u, _i, min, max) => times.splits(min, max, u.over.clientWidth || u.width, 76), values: (_u, splits) => times.labels(splits) },
        labels === undefined
          ? { ...common, grid, scale: 'y', size: LEFT, space: 26 }
          : { ...common, grid: { show: false }, scale: 'y', size: LEFT, splits: () => labels.at, values: () => labels.text },
      ],
      series: [{}, ...plan.lines.map((line, i) => this.seriesOf(line, i))],
      hooks: {
        drawClear: [(u) => this.drawUnknown(u)],
        draw: [
          (u) => {
            plan.draw?.(u, this.ink);
            this.drawMoment(u);
          },
        ],
        setCursor: [(u) => this.showValue(u.cursor.left === undefined || u.cursor.left < 0 ? axis.moment : u.posToVal(u.cursor.left, 'x'))],
        setSelect: [
          (u) => {
            if (u.select.width <= 0) return;
            this.dragged = true;
            const { left, width } = u.select;
            u.setSelect({ left: 0, top: 0, width: 0, height: 0 }, false);
            axis.show(u.posToVal(left, 'x'), u.posToVal(left + width, 'x'));
          },
        ],
      },
    };
  }

  private seriesOf(line: Line, i: number): uPlot.Series {
    const lonely = alone(this.plan.series.y[i] ?? []);
    const { fillTo, stepped } = line;
    const paths = stepped === true ? uPlot.paths.stepped?.({ align: 1 }) : undefined;
    return {
      scale: 'y',
      stroke: () => this.strokes[i],
      width: 1.5,
      ...(line.dashed === true ? { dash: [5, 4] } : {}),
      ...(fillTo === undefined ? {} : { fill: () => `${this.strokes[i]}55`, fillTo }),
      ...(paths === undefined ? {} : { paths }),
      points: { show: true, size: 4, fill: () => this.strokes[i], width: 0, filter: () => lonely },
    };
  }

  private drawUnknown(u: uPlot): void {
    if (this.unknown === null) return;
    const { left, top, width, height } = u.bbox;
    u.ctx.save();
    u.ctx.beginPath();
    u.ctx.rect(left, top, width, height);
    u.ctx.clip();
    drawIntervals(u, this.unknown.electrodesOff, 'electrodes off', this.ink, this.axis.end);
    drawIntervals(u, this.unknown.noLink, 'no link', this.ink, this.axis.end);
    u.ctx.restore();
  }

  private drawMoment(u: uPlot): void {
    const { moment, min, max } = this.axis;
    if (moment === null || moment < min || moment > max) return;
    const x = u.valToPos(moment, 'x', true);
    u.ctx.save();
    u.ctx.beginPath();
    u.ctx.setLineDash([]);
    u.ctx.strokeStyle = this.ink.strong;
    u.ctx.lineWidth = 2 * devicePixelRatio;
    u.ctx.moveTo(x, u.bbox.top);
    u.ctx.lineTo(x, u.bbox.top + u.bbox.height);
    u.ctx.stroke();
    u.ctx.restore();
  }
}

function legend(plan: Plan): HTMLElement {
  const list = element('p', { className: 'unit legend' });
  if (plan.lines.length > 1) {
    for (const line of plan.lines) {
      const sample = element('span', { className: line.dashed === true ? 'sample dashed' : 'sample' });
      sample.dataset['colour'] = line.colour;
      list.append(element('span', {}, sample, line.name));
    }
  }
  if (plan.legend !== undefined) list.append(element('span', { textContent: plan.legend }));
  return list;
}

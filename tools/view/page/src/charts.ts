// SPDX-License-Identifier: MIT
/** The four charts with their headers: content, units, gain, and the value under the pointer. */

import { element, setText } from './dom';
import { type Hello, STREAMS, type StreamName } from './protocol';
import { type Line, type Band, type Context, Trace } from './trace';
import type { Rings } from './live_session';
import { brief } from './words';

interface Plan {
  title: string;
  unit: string;
  lines: Line[];
  band: Band | null;
  /** Lines with names have a legend. */
  names: string[];
}

/** Vertical speeds and ways of exercises stay well within these. */
const VELOCITY = 1;
const DISPLACEMENT = 0.1;
/** The engine's dead band: smaller displacements are neither up nor down. */
const DEAD_BAND = 0.01;

function plans(hello: Hello): Record<StreamName, Plan> {
  const { ecg, filteredEcg, respiration } = hello.streams;
  const line = (name: string, low: number, high: number, auto: boolean): Line => ({
    value: 0,
    colour: name,
    dashed: false,
    full: { low, high },
    symmetric: false,
    auto,
  });
  const high = ecg.high ?? 1;
  return {
    ecg: {
      title: 'ECG, raw',
      unit: `scale ±${high}`,
      lines: [line('ecg', ecg.low ?? -high, high, true)],
      band: null,
      names: [],
    },
    filteredEcg: {
      title: 'ECG, filtered',
      unit: 'scale 0…1',
      lines: [line('filteredEcg', filteredEcg.low ?? 0, filteredEcg.high ?? 1, false)],
      band: null,
      names: [],
    },
    respiration: {
      title: 'Respiration',
      unit: 'scale 0…1',
      lines: [line('respiration', respiration.low ?? 0, respiration.high ?? 1, false)],
      band: null,
      names: [],
    },
    motion: {
      title: 'Motion',
      unit: '',
      lines: [
        {
          value: 1,
          colour: 'displacement',
          dashed: false,
          full: { low: -DISPLACEMENT, high: DISPLACEMENT },
          symmetric: true,
          auto: true,
        },
        { value: 0, colour: 'velocity', dashed: true, full: { low: -VELOCITY, high: VELOCITY }, symmetric: true, auto: true },
      ],
      band: { line: 0, low: -DEAD_BAND, high: DEAD_BAND },
      names: ['displacement, g·s²', 'velocity, g·s'],
    },
  };
}

export class Chart {
  readonly trace: Trace;
  readonly panel: HTMLElement;
  private readonly gainText = element('output', { className: 'gain figure' });
  private readonly readout = element('p', { className: 'readout figure' });
  private readonly autoButton: HTMLButtonElement;
  private pointer: number | null = null;

  constructor(
    readonly stream: StreamName,
    plan: Plan,
    number: number,
    parent: HTMLElement,
  ) {
    const button = (text: string, label: string, act: () => void) => {
      const created = element('button', { type: 'button', textContent: text, ariaLabel: `${plan.title}: ${label}`, title: label });
      created.addEventListener('click', act);
      return created;
    };
    this.autoButton = button('Auto', 'automatic gain', () => this.useAuto());
    const room = element('div', { className: 'room' });
    const key = element('kbd', { textContent: String(number) });
    this.panel = element(
      'section',
      { className: 'chart', tabIndex: 0, ariaLabel: `${plan.title}. Up and down change its gain.` },
      element(
        'header',
        {},
        element('div', { className: 'heading' }, element('h2', { textContent: `${plan.title} ` }, key), description(plan)),
        element(
          'div',
          { className: 'gains' },
          this.gainText,
          button('−', 'less gain', () => this.step(-1)),
          button('+', 'more gain', () => this.step(1)),
          this.autoButton,
          button('Full', 'full scale', () => this.reset()),
        ),
      ),
      room,
    );
    this.panel.dataset['stream'] = stream;
    parent.append(this.panel);
    this.trace = new Trace(room, plan.lines, plan.band);
    room.append(this.readout);
    this.trace.canvas.setAttribute('role', 'img');
    this.trace.canvas.setAttribute('aria-label', `${plan.title}, moving trace${stream === 'ecg' ? ' with a mark for each beat' : ''}`);
    this.trace.over.addEventListener('pointermove', (event) => {
      this.pointer = event.clientX;
    });
    this.trace.over.addEventListener('pointerleave', () => {
      this.pointer = null;
    });
    this.showGain();
  }

  step(steps: number): void {
    for (const gain of this.trace.gains) gain.step(steps);
    this.showGain();
  }

  useAuto(): void {
    for (const gain of this.trace.gains) gain.useAuto();
    this.showGain();
  }

  reset(): void {
    for (const gain of this.trace.gains) gain.reset();
    this.showGain();
  }

  draw(rings: Rings | null, edge: number, seconds: number, wall: number, context: Context): void {
    this.trace.draw(rings === null ? null : rings[this.stream], edge, seconds, wall, context);
    this.showGain();
    this.showReadout(rings);
  }

  private showGain(): void {
    const [gain] = this.trace.gains;
    setText(this.gainText, `×${gain.factor < 9.95 ? brief(gain.factor, 2) : gain.factor.toFixed(0)}`);
    if (this.autoButton.ariaPressed !== String(gain.auto)) this.autoButton.ariaPressed = String(gain.auto);
  }

  /** The last sample at or before the pointer. */
  private showReadout(rings: Rings | null): void {
    if (this.pointer === null || rings === null) return setText(this.readout, '');
    const ring = rings[this.stream];
    const time = this.trace.timeAt(this.pointer);
    const position = ring.positionAt(time) - 1;
    if (position < ring.begin || time - ring.times[position & ring.mask] > 2 / ring.rate) return setText(this.readout, 'no sample');
    const slot = position & ring.mask;
    const values = ring.values.map((array) => array[slot].toPrecision(5));
    setText(this.readout, `${ring.times[slot].toFixed(3)} s: ${values.reverse().join(', ')}`);
  }
}

function description(plan: Plan): HTMLElement {
  if (plan.names.length === 0) return element('p', { className: 'unit', textContent: plan.unit });
  const legend = element('p', { className: 'unit legend' });
  plan.lines.forEach((line, i) => {
    const sample = element('span', { className: line.dashed ? 'sample dashed' : 'sample' });
    sample.dataset['colour'] = line.colour;
    legend.append(element('span', {}, sample, plan.names[i]));
  });
  const band = element('span', { className: 'sample area' });
  legend.append(element('span', { title: 'Within this range the engine detects no movement' }, band, 'still'));
  return legend;
}

export function makeCharts(hello: Hello, parent: HTMLElement): Chart[] {
  parent.replaceChildren();
  const planned = plans(hello);
  return STREAMS.map((name, i) => new Chart(name, planned[name], i + 1, parent));
}

// SPDX-License-Identifier: MIT
/** The tables of the report. */

import { element } from '../dom';
import { clockTime, duration, fixed } from '../words';
import { type Figures, type Hrv, type ReportData, withoutLink } from './data';
import { percent } from './plans';
import type { Times } from './times';

/** Below this share of NN intervals, HRV is not to be used. */
const USABLE = 0.8;

const HRV_COLUMNS: [string, string, (hrv: Hrv) => string][] = [
  ['used', 'NN intervals over all pairs of successive beats', ({ share, nn }) => (nn === 0 ? '–' : percent(share))],
  ['mean NN', 'ms', ({ meanNN }) => fixed(meanNN, 0)],
  ['SDNN', 'ms', ({ sdnn }) => fixed(sdnn, 1)],
  ['RMSSD', 'ms', ({ rmssd }) => fixed(rmssd, 1)],
  ['pNN50', '%', ({ pnn50 }) => fixed(pnn50, 1)],
  ['SD1', 'ms', ({ sd1 }) => fixed(sd1, 1)],
  ['SD2', 'ms', ({ sd2 }) => fixed(sd2, 1)],
  ['LF', 'ms²', ({ lf }) => fixed(lf, 0)],
  ['HF', 'ms²', ({ hf }) => fixed(hf, 0)],
  ['LF/HF', '', ({ lfOverHf }) => fixed(lfOverHf, 2)],
];

const rate = ({ median, lowest, highest }: Figures, digits: number): string =>
  median === null ? '–' : `${fixed(median, digits)} (${fixed(lowest, digits)}–${fixed(highest, digits)})`;

/** A table that scrolls in its own room, also by the keyboard. */
function scrolling(label: string, table: HTMLTableElement): HTMLElement {
  const room = element('div', { className: 'scroll', tabIndex: 0, ariaLabel: label }, table);
  room.setAttribute('role', 'region');
  return room;
}

function head(...names: [string, string][]): HTMLElement {
  const cells = names.map(([name, unit]) => {
    const cell = element('th', {}, name, ...(unit === '' ? [] : [element('span', { className: 'unit', textContent: ` ${unit}` })]));
    cell.scope = 'col';
    return cell;
  });
  return element('thead', {}, element('tr', {}, ...cells));
}

function row(name: string, cells: readonly string[], className = ''): HTMLElement {
  const first = element('th', { textContent: name });
  first.scope = 'row';
  return element('tr', { className }, first, ...cells.map((cell) => element('td', { textContent: cell })));
}

/** Rates and heart rate variability of the whole recording and of every five minutes. */
export function windowTable(data: ReportData, times: Times, parent: HTMLElement): void {
  const body = element('tbody');
  const doubtful = ({ nn, share }: Hrv) => (nn > 0 && share < USABLE ? 'doubtful' : '');
  const hrv = (one: Hrv) => HRV_COLUMNS.map(([_name, _unit, text]) => text(one));
  const { vitals } = data;
  body.append(row('whole', [rate(vitals.heartRate, 0), rate(vitals.breathingRate, 1), ...hrv(vitals.hrv)], `whole ${doubtful(vitals.hrv)}`));
  for (const one of data.windows) {
    body.append(row(times.clock(one.from), [rate(one.heartRate, 0), rate(one.breathingRate, 1), ...hrv(one.hrv)], doubtful(one.hrv)));
  }
  const names: [string, string][] = [['from', ''], ['heart rate', '/min'], ['breathing', '/min'], ...HRV_COLUMNS.map(([name, unit]): [string, string] => [name, name === 'used' ? '' : unit])];
  const label = 'Heart rate, breathing and heart rate variability';
  parent.append(
    element('h2', { textContent: label }),
    element('p', {
      className: 'sentence',
      textContent:
        'The whole recording and every 5 minutes. Rates: median (lowest–highest). Used: the share of intervals between two normal beats; rows in italics have less than 80 % and are not to be used. A dash: not known, or too few intervals.',
    }),
    scrolling(label, element('table', { className: 'figure windows' }, head(...names), body)),
  );
}

interface Row {
  t: number;
  what: string;
  length: number;
}

/** In seconds: what is shorter is the delay of the first and last frames. */
const SHORTEST_GAP = 0.5;

/** The first report of a session is always "off", and corrected a few samples later. */
const FIRST_REPORT = 0.1;

/** Losses of link and contact, and stretches without samples while there was a link. */
export function troubles(data: ReportData): Row[] {
  const { events, contact, duration: end } = data;
  const losses = withoutLink(events, end);
  const rows: Row[] = losses.map(({ from, to }) => ({ t: from, what: from === 0 ? 'not connected yet' : 'link lost', length: to - from }));
  for (const { from, to, contact: on } of contact.intervals) {
    if (!on) rows.push({ t: from, what: 'electrodes off', length: to - from });
  }
  for (const { t, event, duration: length, stream } of events) {
    if (event !== 'gap' || length === undefined || length < SHORTEST_GAP) continue;
    // Every stream has a gap where the link was lost.
    if (losses.some(({ from, to }) => t < to + SHORTEST_GAP && t + length > from - SHORTEST_GAP)) continue;
    rows.push({ t, what: `no samples: ${stream ?? ''}`, length });
  }
  return rows.filter(({ length }) => length >= FIRST_REPORT).sort((a, b) => a.t - b.t);
}

/** Everything that went wrong. */
export function eventTable(data: ReportData, times: Times, parent: HTMLElement): void {
  const rows = troubles(data);
  const body = element('tbody');
  for (const { t, what, length } of rows) {
    body.append(row(times.clock(t), [clockTime(t), what, length < 10 ? `${length.toFixed(1)} s` : duration(length)]));
  }
  const label = 'Losses of link and contact, and gaps';
  parent.append(
    element('h2', { textContent: label }),
    rows.length === 0
      ? element('p', { textContent: 'None.' })
      : scrolling(label, element('table', { className: 'figure events' }, head([times.known ? 'at' : 'time', ''], ['after', ''], ['what', ''], ['for', '']), body)),
  );
}

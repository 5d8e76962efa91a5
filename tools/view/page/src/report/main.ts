// SPDX-License-Identifier: MIT
/** The page of `zephly report`: draws the data that are in the document. Nothing is requested. */

import 'uplot/dist/uPlot.min.css';
import './report.css';
import { byId, element } from '../dom';
import { ReportControls } from './controls';
import { type ReportData, withoutLink } from './data';
import { plans } from './plans';
import { poincare, strip } from './still_charts';
import { summary } from './summary';
import { eventTable, windowTable } from './tables';
import { TimeAxis } from './time_axis';
import { TimeChart } from './time_chart';
import { Times } from './times';

interface Drawn {
  takeColours(): void;
  fit(): void;
}

function build(data: ReportData): void {
  document.title = `${data.title} – Zephly report`;
  const root = byId('report');
  const times = new Times(data.clock);
  // Charts of an empty recording have an axis, too.
  const axis = new TimeAxis(0, Math.max(1, data.duration));
  const charts: Drawn[] = [];
  const redraw = () => {
    for (const chart of charts) {
      chart.takeColours();
      chart.fit();
    }
  };
  const top = element('header', { className: 'top' });
  const bar = element('nav');
  const main = element('main');
  root.append(top, bar, main);
  summary(data, times, top);
  new ReportControls(data, axis, times, bar, redraw);
  const unknown = {
    noLink: withoutLink(data.events, data.duration),
    electrodesOff: data.contact.intervals.filter(({ contact }) => !contact),
  };
  for (const plan of plans(data)) charts.push(new TimeChart(plan, axis, times, plan.id === 'lanes' ? null : unknown, main));
  const still = element('div', { className: 'stills' });
  main.append(still);
  charts.push(poincare(data, still));
  const strips = element('div', { className: 'strips' });
  still.append(strips);
  for (const one of data.strips) charts.push(strip(data, one, times, strips));
  if (data.strips.length === 0) strips.append(element('p', { className: 'sentence', textContent: 'No ten clean seconds of ECG.' }));
  const tables = element('section', { className: 'tables' });
  main.append(tables);
  windowTable(data, times, tables);
  eventTable(data, times, tables);
  root.append(
    element('footer', {}, element('p', { textContent: `Recorded by ${data.recordedBy}; report by ${data.program}. docs/vitals.md describes the numbers, how they are found and what they must not be used for.` })),
  );
  printInLight(redraw);
}

/** Paper is white and narrow. */
function printInLight(redraw: () => void): void {
  let theme: string | undefined;
  const { dataset } = document.documentElement;
  addEventListener('beforeprint', () => {
    theme = dataset['theme'];
    dataset['theme'] = 'light';
    dataset['print'] = 'true';
    redraw();
  });
  addEventListener('afterprint', () => {
    if (theme !== undefined) dataset['theme'] = theme;
    delete dataset['print'];
    redraw();
  });
}

build(JSON.parse(byId('data').textContent ?? '') as ReportData);

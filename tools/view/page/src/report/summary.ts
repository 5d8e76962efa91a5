// SPDX-License-Identifier: MIT
/** The top of the report: whose, when, how long, and how much of it is known. */

import { element } from '../dom';
import { duration, fixed, several } from '../words';
import type { Figures, ReportData } from './data';
import { linkText, percent, repetitionsText } from './plans';
import type { Times } from './times';

function tile(name: string, value: string, detail: string): HTMLElement {
  return element('div', { className: 'tile' }, element('dt', { textContent: name }), element('dd', { className: 'value figure', textContent: value }), element('dd', { className: 'detail', textContent: detail }));
}

const rate = ({ median }: Figures, digits: number): string => (median === null ? '–' : `${fixed(median, digits)} /min`);
const span = ({ median, lowest, highest }: Figures, digits: number): string => (median === null ? 'not known' : `median; ${fixed(lowest, digits)} to ${fixed(highest, digits)}`);

function when(data: ReportData, times: Times): string {
  const date = times.date(0);
  if (date === null) return '–';
  const last = times.date(data.duration);
  return last === date ? date : `${date} – ${last}`;
}

export function summary(data: ReportData, times: Times, parent: HTMLElement): void {
  const { vitals } = data;
  const { beats, hrv } = vitals;
  const battery = data.battery.charge;
  const skin = data.temperature.skin.filter((value) => value !== null).sort((a, b) => a - b);
  parent.append(
    element('h1', { textContent: data.title }),
    element('p', { className: 'source', textContent: `${data.file}: ${data.source}${data.simulated ? '. Simulated: no person wore this strap.' : ''}` }),
  );
  if (data.complaints.length > 0) {
    const list = element('ul', {}, ...data.complaints.map((line) => element('li', { textContent: line })));
    const banner = element('div', { className: 'banner' }, element('strong', { textContent: 'The capture is damaged or incomplete. This report shows what could be read.' }), list);
    banner.dataset['state'] = 'bad';
    parent.append(banner);
  }
  parent.append(
    element(
      'dl',
      { className: 'tiles' },
      tile('Recorded', when(data, times), times.known ? `${times.clock(0)} to ${times.clock(data.duration)} (${times.zone})` : 'the date is not known'),
      tile('Duration', duration(data.duration), linkText(data)),
      tile('Electrodes on the skin', percent(data.contact.share), 'of the recording'),
      tile('Heart rate', rate(vitals.heartRate, 0), span(vitals.heartRate, 0)),
      tile('Breathing', rate(vitals.breathingRate, 1), span(vitals.breathingRate, 1)),
      tile('Beats', beats.count.toLocaleString('en-GB'), `${several(beats.ectopic, 'ectopic')}, ${several(beats.artefact, 'artefact')}`.replace('ectopics', 'ectopic')),
      tile('RMSSD', hrv.rmssd === null ? '–' : `${fixed(hrv.rmssd, 1)} ms`, hrv.nn === 0 ? 'too few intervals' : `SDNN ${fixed(hrv.sdnn, 1)} ms, from ${percent(hrv.share)} of the intervals`),
      tile('Repetitions', String(data.events.filter(({ event }) => ['push-up', 'sit-up', 'jump'].includes(event)).length), repetitionsText(data.events)),
      tile('Skin', skin.length === 0 ? '–' : `${fixed(skin[Math.floor(skin.length / 2)], 1)} °C`, skin.length === 0 ? 'not known' : `median; ${fixed(skin[0], 1)} to ${fixed(skin[skin.length - 1], 1)}`),
      tile('Battery', battery.length === 0 ? '–' : `${fixed(battery[battery.length - 1], 0)} %`, battery.length === 0 ? 'not reported' : `at the end; ${fixed(battery[0], 0)} % at the begin`),
    ),
    element('p', { className: 'warning' }, element('strong', { textContent: 'Not a medical device.' }), ' Do not use it for a diagnosis, for a decision on a treatment, or as an alarm.'),
  );
}

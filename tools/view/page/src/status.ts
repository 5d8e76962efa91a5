// SPDX-License-Identifier: MIT
/** Everything on the page that is not a chart: states, numbers, tables, and announcements. */

import type { Phase } from './connection';
import { announce, byId, element, setData, setText } from './dom';
import { type HostProblem, hostProblem } from './host_line';
import type { LiveSession, LogLine } from './live_session';
import { type Hello, type State, type StreamCount, type StreamName, STREAMS } from './protocol';
import { brief, clockTime, count, duration, fixed, several } from './words';

type Level = 'good' | 'bad' | 'unknown';

/** The estimate of the body temperature settles with this number of readings. */
const READINGS_TO_SETTLE = 20;
/** Temperatures arrive once a second; beyond this age in seconds they are shown as old. */
const FRESH = 3;

const EVENTS: Readonly<Record<LogLine['event'], string>> = {
  connected: 'connected',
  disconnected: 'link lost',
  electrodesOff: 'electrodes off',
  electrodesOn: 'electrodes on',
  pushUp: 'push-up',
  sitUp: 'sit-up',
  jump: 'jump',
  diagnostic: '',
  host: '',
};

export class Status {
  private rates: Rate[] = [];
  private ratesOf: Hello | null = null;
  private shownLosses = '';
  private shownEvents = 0;
  private announced = { link: '', electrodes: '' };

  /** `session` is null before the program's first message; `now` is its time. */
  show(session: LiveSession | null, phase: Phase, now: number): void {
    const state = session?.state ?? null;
    const live = phase.kind === 'live' && state?.ended !== true;
    setData(document.body, 'live', String(live));
    setText(byId('clock'), session === null ? '–' : clockTime(now));
    this.showProgram(phase, state);
    this.showLink(state, live, now);
    this.showElectrodes(session, state, live, now);
    document.title = title(state, phase);
    setData(byId('states'), 'problem', String(problemOf(state, live) !== null));
    if (session === null) return;
    showNotice(session);
    if (state !== null) {
      showVitals(state, live);
      showTemperatures(state, now);
      showBattery(state);
      showRepetitions(state);
      this.showRates(session, state);
      this.showLosses(state);
    }
    this.showEvents(session);
  }

  /** For another session: discards pending announcements. */
  reset(): void {
    this.shownLosses = '';
    this.shownEvents = -1;
    this.announced = { link: '', electrodes: '' };
  }

  private showProgram(phase: Phase, state: State | null): void {
    const banner = byId('program');
    const text = byId('program-text');
    const detail = byId('program-detail');
    byId('retry').hidden = phase.kind !== 'waiting';
    banner.hidden = phase.kind === 'live' ? state?.ended !== true : phase.kind === 'connecting' && banner.hidden;
    if (phase.kind === 'live') {
      setText(text, 'The session has ended.');
      setText(detail, 'The last 30 seconds remain visible while this page is open.');
      setData(banner, 'state', 'notice');
    } else if (phase.kind === 'refused') {
      setText(text, phase.reason);
      setText(detail, '');
      setData(banner, 'state', 'bad');
    } else if (phase.kind === 'waiting') {
      const left = Math.max(0, Math.ceil((phase.at - performance.now()) / 1000));
      setText(text, state?.ended === true ? 'The program has ended.' : 'The program is not responding.');
      setText(detail, `Showing old data. Retrying in ${left} s. If zephly view has printed a new address, open it.`);
      setData(banner, 'state', 'bad');
    }
  }

  private showLink(state: State | null, live: boolean, now: number): void {
    if (state === null) return show('link', 'unknown', 'Waiting', '');
    if (state.ended) return show('link', 'unknown', 'Session ended', ENDED[lastLink(state)]);
    if (!live) return show('link', 'unknown', 'Unknown', `last data: ${lastLink(state)}`);
    const lasted = state.linkChanged === null ? '' : `for ${duration(now - state.linkChanged)}`;
    const problem = problemOf(state, live);
    if (problem !== null) {
      const lost = state.connections > 0;
      this.say('link', `${lost ? 'Link to the strap lost. ' : ''}${problem.reason}.`, true);
      show('link', 'bad', problem.reason, `${lost ? `Link lost ${lasted}. ` : ''}${problem.help}`);
    } else if (state.connected) {
      this.say('link', 'Link to the strap: connected.', false);
      show('link', 'good', 'Connected', lasted);
    } else if (state.connections === 0) {
      show('link', 'unknown', 'Searching', 'for a strap');
    } else {
      this.say('link', 'Link to the strap lost.', true);
      const reason = state.linkLosses.at(-1)?.reason;
      show('link', 'bad', 'Link lost', `${lasted}, searching. ${reason ?? ''}`);
    }
  }

  private showElectrodes(session: LiveSession | null, state: State | null, live: boolean, now: number): void {
    if (state === null || state.electrodesOff === null) {
      const ended = state?.ended === true;
      show('electrodes', 'unknown', ended ? 'Session ended' : 'Unknown', ended ? 'No report was received.' : 'no report yet');
    } else if (state.ended) {
      show('electrodes', 'unknown', 'Session ended', `The electrodes were ${lastContact(state)}.`);
    } else if (!live) {
      show('electrodes', 'unknown', 'Unknown', `last data: ${lastContact(state)}`);
    } else if (!state.connected) {
      show('electrodes', 'unknown', 'Unknown', `no link; last report: ${lastContact(state)}`);
    } else if (state.electrodesOff) {
      this.say('electrodes', 'Electrodes off the skin.', true);
      const from = session?.electrodesOff.at(-1)?.from ?? now;
      show('electrodes', 'bad', 'Electrodes off', `for ${duration(now - from)}: no contact with the skin`);
    } else {
      this.say('electrodes', 'Electrodes on the skin.', false);
      show('electrodes', 'good', 'On the skin', '');
    }
  }

  private say(what: 'link' | 'electrodes', text: string, urgent: boolean): void {
    if (this.announced[what] === text) return;
    this.announced[what] = text;
    announce(text, urgent);
  }

  private showRates(session: LiveSession, state: State): void {
    if (this.ratesOf !== session.hello) {
      this.ratesOf = session.hello;
      this.rates = makeRates(session.hello);
    }
    for (const { name, cells } of this.rates) {
      const counted = state.streams[name];
      if (counted === undefined) continue;
      setText(cells[0], counted.perSecond === null ? '–' : counted.perSecond.toFixed(counted.perSecond < 10 ? 2 : 0));
      setText(cells[1], count(counted.received));
      setText(cells[2], missing(counted));
      setText(cells[3], counted.longestGap === null ? '–' : gap(counted.longestGap));
      const stream = STREAMS.find((other) => other === name);
      setText(cells[4], stream === undefined ? '' : count(session.missed[stream]));
    }
  }

  private showLosses(state: State): void {
    setText(byId('losses-count'), `${state.disconnections} in ${several(state.connections, 'connection')}`);
    const key = JSON.stringify(state.linkLosses);
    if (key === this.shownLosses) return;
    this.shownLosses = key;
    const rows = state.linkLosses
      .slice(-5)
      .reverse()
      .map((loss) => {
        const back = loss.recovery === null ? '–' : `${loss.recovery.toFixed(1)} s`;
        return row([clockTime(loss.t), back, loss.reason ?? 'no reason given']);
      });
    byId('losses').replaceChildren(...(rows.length > 0 ? rows : [row(['none', '', ''])]));
  }

  private showEvents(session: LiveSession): void {
    const last = session.log.at(-1);
    const key = last === undefined ? 0 : session.log.length + last.t;
    if (key === this.shownEvents) return;
    this.shownEvents = key;
    const lines = session.log
      .filter(({ event }) => event !== 'diagnostic')
      .slice(-6)
      .reverse();
    byId('events').replaceChildren(
      ...lines.map(({ t, event, text }) =>
        element('li', {}, element('span', { className: 'figure', textContent: clockTime(t) }), ` ${text || EVENTS[event]}`),
      ),
    );
  }
}

function title(state: State | null, phase: Phase): string {
  if (phase.kind === 'refused') return '⚠ Reload – Zephly';
  if (phase.kind !== 'live' && state !== null) return '⚠ Not responding – Zephly';
  if (state === null || state.ended) return 'Zephly';
  if (problemOf(state, true) !== null) return '⚠ No Bluetooth – Zephly';
  if (!state.connected) return state.connections > 0 ? '⚠ Link lost – Zephly' : 'Searching – Zephly';
  return state.electrodesOff === true ? '⚠ Electrodes off – Zephly' : 'Zephly';
}

/** What keeps the host from finding a strap; null while there is a link or nothing is wrong. */
function problemOf(state: State | null, live: boolean): HostProblem | null {
  return !live || state === null || state.connected ? null : hostProblem(state.hostLine);
}

const ENDED = {
  connected: 'The strap was connected.',
  'link lost': 'The link was lost.',
  'no strap found': 'No strap was found.',
} as const;

function lastLink(state: State): keyof typeof ENDED {
  return state.connected ? 'connected' : state.connections === 0 ? 'no strap found' : 'link lost';
}

function lastContact(state: State): string {
  return state.electrodesOff === true ? 'off' : 'on the skin';
}

function show(id: 'link' | 'electrodes', level: Level, word: string, detail: string): void {
  setData(byId(id), 'state', level);
  setText(byId(`${id}-text`), word);
  setText(byId(`${id}-detail`), detail || '\u00a0');
  const icon = byId(`${id}-icon`);
  if (icon.getAttribute('href') !== `#icon-${level}`) icon.setAttribute('href', `#icon-${level}`);
}

function showNotice(session: LiveSession): void {
  const total = STREAMS.reduce((sum, name) => sum + session.missed[name], 0);
  byId('notice').hidden = total === 0;
  if (total === 0) return;
  const by = STREAMS.filter((name) => session.missed[name] > 0).map((name) => `${LONG[name]} ${count(session.missed[name])}`);
  setText(byId('notice-text'), `${several(total, 'sample')} did not reach this page`);
  setText(byId('notice-detail'), `(${by.join(', ')}). It was too slow or disconnected; the session received them.`);
}

const LONG: Readonly<Record<StreamName, string>> = {
  ecg: 'raw ECG',
  filteredEcg: 'filtered ECG',
  respiration: 'respiration',
  motion: 'motion',
};

function number(id: string, value: string, detail: string, level: Level | 'stale' = 'good'): void {
  const tile = byId(id);
  setText(tile.querySelector('.value') as Element, value);
  setText(tile.querySelector('.detail') as Element, detail || '\u00a0');
  setData(tile, 'state', level);
}

/** Unknown rates are a dash with the reason. */
function showVitals(state: State, live: boolean): void {
  const vitals = live ? state.vitals : null;
  const reason = unknownVitals(state, live);
  showRate('heart', vitals?.heartRate ?? null, vitals?.heartRateQuality ?? 0, '', reason);
  const derived = vitals?.breathingDerived === true ? ', from the ECG' : '';
  showRate('breathing', vitals?.breathingRate ?? null, vitals?.breathingQuality ?? 0, derived, reason);
}

function showRate(id: 'heart' | 'breathing', rate: number | null, quality: number, derived: string, reason: string): void {
  if (rate === null) number(id, '–', reason, 'unknown');
  else number(id, rate.toFixed(0), `quality ${Math.round(quality * 100)} %${derived}`);
}

function unknownVitals(state: State, live: boolean): string {
  if (state.ended) return 'session ended';
  if (!live) return 'no data';
  if (!state.connected) return 'no link';
  return state.electrodesOff === true ? 'electrodes off' : 'not known';
}

function showTemperatures(state: State, now: number): void {
  const { temperature } = state;
  if (temperature === null) {
    number('skin', '–', 'no reading yet');
    number('ambient', '–', 'no reading yet');
    number('body', '–', 'estimate: no reading yet');
    return;
  }
  const age = now - temperature.t;
  const old = age > FRESH ? `${duration(age)} old` : '';
  const level = old === '' ? 'good' : 'stale';
  number('skin', fixed(temperature.object, 1), old, level);
  number('ambient', fixed(temperature.ambient, 1), old, level);
  if (temperature.body === null) {
    number('body', '–', `estimate, settling: ${temperature.bodyReadings} of ${READINGS_TO_SETTLE} readings`, level);
  } else {
    number('body', fixed(temperature.body, 1), old || 'estimate', level);
  }
}

function showBattery(state: State): void {
  if (state.battery === null) return number('battery', '–', 'no report yet');
  const { soc, inCharge } = state.battery;
  const low = soc !== null && soc < 15 && !inCharge;
  const text = inCharge ? '⚡ charging' : low ? 'low: charge the strap' : 'not charging';
  number('battery', fixed(soc, soc !== null && soc >= 99.95 ? 0 : 1), text, low ? 'bad' : 'good');
}

function showRepetitions({ repetitions }: State): void {
  setText(byId('pushUps'), count(repetitions.pushUps));
  setText(byId('sitUps'), count(repetitions.sitUps));
  setText(byId('jumps'), count(repetitions.jumps));
}

function gap(seconds: number): string {
  return seconds < 1 ? `${brief(seconds * 1000)} ms` : `${brief(seconds)} s`;
}

function missing({ missing: seconds, missingPercent: percent }: StreamCount): string {
  if (seconds === null || percent === null) return '–';
  if (seconds === 0) return '0 s';
  return `${seconds.toFixed(1)}\u00a0s (${percent < 0.1 ? '<0.1' : percent.toFixed(1)}\u00a0%)`;
}

function row(texts: string[]): HTMLTableRowElement {
  return element('tr', {}, ...texts.map((text) => element('td', { textContent: text })));
}

/** One row of the table of streams. */
interface Rate {
  name: string;
  cells: HTMLTableCellElement[];
}

function makeRates(hello: Hello): Rate[] {
  const rates = hello.counted.map(({ name, title }) => {
    const cells = Array.from({ length: 5 }, () => element('td', { className: 'figure', textContent: '–' }));
    return { name, title, cells };
  });
  byId('rates').replaceChildren(
    ...rates.map(({ title, cells }) => element('tr', {}, element('th', { scope: 'row', textContent: title }), ...cells)),
  );
  return rates;
}

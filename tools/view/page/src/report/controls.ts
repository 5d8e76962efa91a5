// SPDX-License-Identifier: MIT
/** The bar with the shown span, the selected moment and the command that plays it; and the keys. */

import { announce, element, setText } from '../dom';
import { ThemeChoice } from '../theme';
import { clockTime, duration } from '../words';
import { replayCommand } from './command';
import type { ReportData } from './data';
import type { TimeAxis } from './time_axis';
import type { Times } from './times';

const ZOOM = 2;
const PAN = 0.5;
const STEP = 0.02;
const LARGE_STEP = 0.2;

export class ReportControls {
  private readonly shown = element('p', { className: 'shown figure' });
  private readonly moment = element('p', { className: 'moment figure' });
  private readonly command = element('code');
  private readonly copy = element('button', { type: 'button', textContent: 'Copy', hidden: true });
  private readonly themeButton = element('button', { type: 'button' });
  private readonly theme: ThemeChoice;

  constructor(
    private readonly data: ReportData,
    private readonly axis: TimeAxis,
    private readonly times: Times,
    parent: HTMLElement,
    recoloured: () => void,
  ) {
    const button = (text: string, label: string, act: () => void) => {
      const created = element('button', { type: 'button', textContent: text, ariaLabel: label, title: label });
      created.addEventListener('click', act);
      return created;
    };
    this.copy.addEventListener('click', () => void this.copyCommand());
    this.themeButton.addEventListener('click', () => this.nextTheme());
    const bar = element(
      'div',
      { className: 'bar' },
      button('+', 'Show a shorter time', () => axis.zoom(1 / ZOOM)),
      button('−', 'Show a longer time', () => axis.zoom(ZOOM)),
      button('◀', 'Earlier', () => axis.pan(-PAN)),
      button('▶', 'Later', () => axis.pan(PAN)),
      button('Whole recording', 'Show the whole recording', () => axis.showWhole()),
      this.shown,
      this.themeButton,
      this.moment,
      this.command,
      this.copy,
    );
    bar.setAttribute('role', 'toolbar');
    bar.setAttribute('aria-label', 'Time and moment');
    parent.append(bar);
    this.theme = new ThemeChoice(recoloured);
    axis.follow(() => this.show());
    document.addEventListener('keydown', (event) => this.key(event));
    this.show();
  }

  private show(): void {
    const { axis, times } = this;
    setText(this.themeButton, `◐ ${this.theme.chosen}`);
    this.themeButton.ariaLabel = `Theme: ${this.theme.chosen}`;
    setText(this.shown, `${times.clock(axis.min)} to ${times.clock(axis.max)} · ${duration(axis.max - axis.min)}`);
    if (axis.moment === null) {
      setText(this.moment, 'Click a chart to select a moment, drag to zoom, double-click for the whole. Keys: ← → + − 0 t');
      return;
    }
    setText(this.moment, `Moment: ${times.clock(axis.moment)}${times.known ? `, ${clockTime(axis.moment)} after the begin` : ''}.`);
    setText(this.command, replayCommand(this.data.file, axis.moment));
    this.copy.hidden = navigator.clipboard === undefined;
  }

  private async copyCommand(): Promise<void> {
    await navigator.clipboard.writeText(this.command.textContent ?? '');
    announce('Copied', false);
  }

  private nextTheme(): void {
    this.theme.next();
    this.show();
  }

  private key(event: KeyboardEvent): void {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    // The arrow keys scroll a table that has the focus.
    const scrolls = (event.target as Element).closest('.scroll') !== null;
    const step = event.shiftKey ? LARGE_STEP : STEP;
    const actions: Record<string, () => void> = {
      '+': () => this.axis.zoom(1 / ZOOM),
      '=': () => this.axis.zoom(1 / ZOOM),
      '-': () => this.axis.zoom(ZOOM),
      '0': () => this.axis.showWhole(),
      t: () => this.nextTheme(),
      ...(scrolls ? {} : { ArrowLeft: () => this.step(-step), ArrowRight: () => this.step(step) }),
    };
    const act = actions[event.key];
    if (act === undefined) return;
    event.preventDefault();
    act();
  }

  private step(part: number): void {
    this.axis.step(part);
    announce(this.times.clock(this.axis.moment ?? 0), false);
  }
}

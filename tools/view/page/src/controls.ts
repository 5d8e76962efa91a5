// SPDX-License-Identifier: MIT
/** Input by keys, buttons, wheel and touch, mapped to a few common commands. */

import type { Chart } from './charts';
import { announce, byId, setText } from './dom';
import { SPANS, type TimeWindow } from './time_window';

export interface Commands {
  pause(): void;
  span(seconds: number): void;
  stepSpan(direction: 1 | -1): void;
  zoom(factor: number): void;
  /** By a part of the window, only while paused. */
  pan(part: number): void;
  theme(): string;
  charts(): readonly Chart[];
  retry(): void;
}

/** The deltaY of one notch of a wheel. */
const ZOOM_PER_PIXEL = 0.0015;

export class Controls {
  /** The chart that the arrow keys act on. */
  private chosen = 0;
  private readonly fingers = new Map<number, PointerEvent>();

  constructor(private readonly commands: Commands) {
    byId('pause').addEventListener('click', () => commands.pause());
    byId('theme').addEventListener('click', () => this.theme());
    byId('help').addEventListener('click', () => this.help());
    byId('help-close').addEventListener('click', () => this.help());
    byId('retry').addEventListener('click', () => commands.retry());
    for (const button of spanButtons()) button.addEventListener('click', () => commands.span(Number(button.dataset['span'])));
    document.addEventListener('keydown', (event) => this.key(event));
    const charts = byId('charts');
    charts.addEventListener('focusin', (event) => this.choose(event.target as Node));
    charts.addEventListener('wheel', (event) => this.wheel(event), { passive: false });
    charts.addEventListener('pointerdown', (event) => this.fingerDown(event));
    charts.addEventListener('pointermove', (event) => this.fingerMoved(event));
    for (const end of ['pointerup', 'pointercancel', 'lostpointercapture'] as const) {
      charts.addEventListener(end, (event) => this.fingers.delete(event.pointerId));
    }
  }

  show(window: TimeWindow): void {
    const pause = byId('pause');
    pause.ariaPressed = String(window.paused);
    setText(byId('pause-text'), window.paused ? 'Resume' : 'Pause');
    document.body.dataset['paused'] = String(window.paused);
    for (const button of spanButtons()) button.ariaPressed = String(Number(button.dataset['span']) === window.seconds);
  }

  showTheme(text: string): void {
    setText(byId('theme-text'), text);
  }

  private theme(): void {
    const text = this.commands.theme();
    this.showTheme(text);
    announce(`Theme: ${text}`, false);
  }

  private help(): void {
    const box = byId<HTMLDialogElement>('help-box');
    if (box.open) box.close();
    else box.showModal();
  }

  private key(event: KeyboardEvent): void {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    // The help dialog blocks the rest of the page; a focused button handles the space bar and Enter.
    const helping = byId<HTMLDialogElement>('help-box').open;
    if (helping && event.key !== '?') return;
    if (event.key === ' ' && event.target instanceof HTMLButtonElement) return;
    if (this.act(event.key)) event.preventDefault();
  }

  private act(key: string): boolean {
    const { commands } = this;
    const chart = commands.charts()[this.chosen];
    const actions: Record<string, () => void> = {
      ' ': () => commands.pause(),
      '+': () => commands.stepSpan(-1),
      '=': () => commands.stepSpan(-1),
      '-': () => commands.stepSpan(1),
      ArrowLeft: () => commands.pan(-0.25),
      ArrowRight: () => commands.pan(0.25),
      ArrowUp: () => chart?.step(1),
      ArrowDown: () => chart?.step(-1),
      a: () => chart?.useAuto(),
      '0': () => chart?.reset(),
      t: () => this.theme(),
      '?': () => this.help(),
    };
    const digit = Number(key);
    if (digit >= 1 && digit <= commands.charts().length) {
      commands.charts()[digit - 1]?.panel.focus();
      return true;
    }
    actions[key]?.();
    return key in actions;
  }

  private choose(target: Node): void {
    const index = this.commands.charts().findIndex(({ panel }) => panel.contains(target));
    if (index >= 0) this.chosen = index;
  }

  private wheel(event: WheelEvent): void {
    if (!(event.target as Element).closest('.room')) return;
    event.preventDefault();
    if (Math.abs(event.deltaX) > Math.abs(event.deltaY)) this.commands.pan(event.deltaX / 800);
    else this.commands.zoom(Math.exp(event.deltaY * ZOOM_PER_PIXEL * (event.deltaMode === 0 ? 1 : 30)));
  }

  private fingerDown(event: PointerEvent): void {
    if (!(event.target as Element).closest('.room')) return;
    this.fingers.set(event.pointerId, event);
  }

  /** One pointer drags a paused window, two pointers zoom. */
  private fingerMoved(event: PointerEvent): void {
    const before = this.fingers.get(event.pointerId);
    if (before === undefined) return;
    this.fingers.set(event.pointerId, event);
    const others = [...this.fingers.values()].filter((other) => other.pointerId !== event.pointerId);
    if (others.length === 0) {
      const width = (event.target as Element).clientWidth || 1;
      this.commands.pan((before.clientX - event.clientX) / width);
    } else if (others.length === 1) {
      const apart = (one: PointerEvent) => Math.max(20, Math.abs(one.clientX - others[0].clientX));
      this.commands.zoom(apart(before) / apart(event));
    }
  }
}

function spanButtons(): HTMLButtonElement[] {
  return SPANS.map((span) => document.querySelector<HTMLButtonElement>(`[data-span="${span}"]`)).filter((button) => button !== null);
}

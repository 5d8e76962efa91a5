// SPDX-License-Identifier: MIT
/** The page of `zephly view`: connects its parts and draws a frame when the browser requests one. */

import 'uplot/dist/uPlot.min.css';
import { type Chart, makeCharts } from './charts';
import { Connection } from './connection';
import { type ConsoleAccess, consoleAccess } from './console_access';
import { Controls } from './controls';
import { announce, byId, setText } from './dom';
import { FrameTimes } from './frame_times';
import { LiveSession, type Rings } from './live_session';
import type { Hello, Message } from './protocol';
import { SessionClock } from './session_clock';
import { Status } from './status';
import { ThemeChoice } from './theme';
import { TimeWindow } from './time_window';
import { Trends } from './trends';
import type { VitalsHistory } from './vitals_history';

declare global {
  interface Window {
    zephly: ConsoleAccess;
  }
}

/** The interval in milliseconds between updates of everything except charts. */
const STATUS_EVERY = 100;

class Page {
  private session: LiveSession | null = null;
  private charts: Chart[] = [];
  /** The samples shown during a pause: a copy from its beginning. */
  private heldRings: Rings | null = null;
  private heldVitals: VitalsHistory | null = null;
  private readonly trends = new Trends(byId('trends'));
  private readonly clock = new SessionClock();
  private readonly window = new TimeWindow();
  private readonly status = new Status();
  private readonly frames = new FrameTimes();
  private readonly theme = new ThemeChoice(() => {
    this.charts.forEach(({ trace }) => trace.takeColours());
    this.trends.takeColours();
  });
  private readonly connection = new Connection(address(), {
    hello: (hello) => this.hello(hello),
    message: (message) => this.take(message),
    phase: (phase) => {
      if (phase.kind !== 'live') this.clock.stop();
      if (phase.kind === 'waiting' && phase.attempts === 1) announce('The program is not responding.', true);
      if (phase.kind === 'live') announce('Connected to the program.', false);
    },
  });
  private readonly controls = new Controls({
    pause: () => this.pause(),
    span: (seconds) => this.look(() => (this.window.seconds = seconds)),
    stepSpan: (direction) => this.look(() => this.window.step(direction)),
    zoom: (factor) => this.look(() => this.window.zoom(factor)),
    pan: (part) => this.look(() => this.pan(part)),
    theme: () => this.theme.next(),
    charts: () => this.charts,
    retry: () => this.connection.retry(),
  });
  private edge = 0;
  private statusAt = 0;

  start(): void {
    this.controls.showTheme(this.theme.chosen);
    this.controls.show(this.window);
    window.zephly = consoleAccess({
      connection: this.connection,
      session: () => this.session,
      charts: () => this.charts,
      window: this.window,
      edge: () => this.edge,
      frames: this.frames,
    });
    this.connection.open();
    requestAnimationFrame((begin) => this.frame(begin));
  }

  /** Continues the same session; starts again for another one. */
  private hello(hello: Hello): void {
    if (this.session?.hello.session !== hello.session) {
      if (this.session !== null) announce('A new session has started.', true);
      this.session = new LiveSession(hello);
      this.heldRings = null;
      this.heldVitals = null;
      this.window.held = null;
      this.clock.reset();
      this.status.reset();
      this.charts = makeCharts(hello, byId('charts'));
      this.controls.show(this.window);
    }
    setText(byId('source'), hello.title);
    setText(byId('pace'), hello.pace);
    setText(byId('program-version'), hello.program);
    this.clock.observe(hello.now, performance.now() / 1000);
  }

  private take(message: Exclude<Message, Hello>): void {
    const { session } = this;
    if (session === null) return;
    switch (message.type) {
      case 'samples':
        session.takeSamples(message);
        break;
      case 'state':
        session.takeState(message);
        this.clock.observe(message.now, performance.now() / 1000);
        if (message.ended) this.clock.stop();
        break;
      case 'event':
        session.takeEvent(message);
        break;
      case 'vitals':
        session.takeVitals(message);
        break;
      case 'lost':
        session.takeLost(message);
        break;
    }
  }

  private pause(): void {
    if (this.window.paused) {
      this.window.held = null;
      this.heldRings = null;
      this.heldVitals = null;
    } else if (this.session !== null) {
      const { ecg, filteredEcg, respiration, motion } = this.session.rings;
      this.window.held = this.edge;
      this.heldVitals = this.session.vitals.snapshot();
      this.heldRings = {
        ecg: ecg.snapshot(),
        filteredEcg: filteredEcg.snapshot(),
        respiration: respiration.snapshot(),
        motion: motion.snapshot(),
      };
    }
    this.controls.show(this.window);
    announce(this.window.paused ? 'Paused.' : 'Resumed.', false);
  }

  private pan(part: number): void {
    const ring = this.heldRings?.ecg;
    if (ring !== undefined && ring.end > 0) this.window.pan(part, ring.times[ring.begin & ring.mask], Math.max(ring.lastTime, this.window.held ?? 0));
  }

  private look(change: () => void): void {
    change();
    this.controls.show(this.window);
  }

  private frame(begin: number): void {
    // Requested first, so that an error in one frame does not stop the following ones.
    requestAnimationFrame((next) => this.frame(next));
    const started = performance.now();
    const wall = started / 1000;
    const live = this.clock.edge(wall);
    this.edge = this.window.held ?? live;
    const now = this.clock.at(wall);
    this.draw(wall, now);
    if (started - this.statusAt >= STATUS_EVERY) {
      this.statusAt = started;
      this.status.show(this.session, this.connection.phase, now);
      const behind = live - this.edge;
      setText(byId('behind'), this.window.paused ? `Paused, ${behind.toFixed(0)} s behind. Press space to resume.` : '');
    }
    this.frames.note(begin, performance.now());
  }

  private draw(wall: number, now: number): void {
    const { session } = this;
    if (session === null) return;
    const { seconds } = this.window;
    const rings = this.heldRings ?? session.rings;
    const vitals = this.heldVitals ?? session.vitals;
    const beats = vitals.beatsWithin(this.edge - seconds, this.edge);
    for (const chart of this.charts) {
      const electrical = chart.stream !== 'motion';
      chart.draw(rings, this.edge, seconds, wall, {
        now,
        linkOff: session.linkOff,
        electrodesOff: electrical ? session.electrodesOff : [],
        repetitions: electrical ? [] : session.repetitions,
        beats: chart.stream === 'ecg' ? beats : [],
      });
    }
    this.trends.show(vitals, this.window.held ?? now);
  }
}

function address(): string {
  return `${location.protocol === 'https:' ? 'wss' : 'ws'}://${location.host}/live`;
}

new Page().start();

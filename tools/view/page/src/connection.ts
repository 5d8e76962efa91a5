// SPDX-License-Identifier: MIT
/**
 * The WebSocket to the program. It reconnects automatically after a loss: at once when the page becomes
 * visible, otherwise after increasing delays.
 */

import { type Hello, type Message, parseSamples, parseText, PROTOCOL } from './protocol';

export type Phase =
  | { kind: 'connecting' }
  | { kind: 'live' }
  /** `at`: when the next attempt is made, in milliseconds of performance.now(). */
  | { kind: 'waiting'; at: number; attempts: number }
  /** The protocol versions differ: no further attempt. */
  | { kind: 'refused'; reason: string };

export interface Listener {
  hello(hello: Hello): void;
  message(message: Exclude<Message, Hello>): void;
  phase(phase: Phase): void;
}

/** Milliseconds before attempt 1, 2, ...; the last one repeats. */
export const PAUSES = [250, 500, 1000, 2000, 4000, 8000];
/** A connection that lasts this long, in milliseconds, resets the delays. */
const PROVEN = 2000;
/** The time limit of an attempt, in milliseconds. */
const OPENING = 5000;

export class Connection {
  phase: Phase = { kind: 'connecting' };
  /** The number of invalid messages. */
  misunderstood = 0;
  private socket: WebSocket | null = null;
  private timer = 0;
  private attempts = 0;
  private openedAt = 0;

  constructor(
    private readonly address: string,
    private readonly listener: Listener,
  ) {
    addEventListener('online', () => this.retry());
    document.addEventListener('visibilitychange', () => {
      if (!document.hidden) this.retry();
    });
  }

  open(): void {
    const socket = new WebSocket(this.address);
    socket.binaryType = 'arraybuffer';
    this.socket = socket;
    let greeted = false;
    const opening = window.setTimeout(() => socket.close(), OPENING);
    socket.addEventListener('message', (event) => {
      const message = this.understand(event.data);
      if (message === null) return;
      if (message.type === 'hello') {
        clearTimeout(opening);
        greeted = this.greet(message);
      } else if (greeted) {
        this.listener.message(message);
      }
    });
    socket.addEventListener('close', () => {
      clearTimeout(opening);
      if (this.socket === socket) this.closed(greeted);
    });
  }

  /** Ends the current delay and tries at once. */
  retry(): void {
    if (this.phase.kind !== 'waiting') return;
    clearTimeout(this.timer);
    this.enter({ kind: 'connecting' });
    this.open();
  }

  private greet(hello: Hello): boolean {
    if (hello.protocol !== PROTOCOL) {
      const reason = `The program uses protocol version ${hello.protocol}, this page version ${PROTOCOL}. Reload the page.`;
      this.enter({ kind: 'refused', reason });
      this.socket?.close();
      return false;
    }
    this.openedAt = performance.now();
    this.listener.hello(hello);
    this.enter({ kind: 'live' });
    return true;
  }

  private understand(data: unknown): Message | null {
    try {
      return typeof data === 'string' ? parseText(data) : parseSamples(data as ArrayBuffer);
    } catch (error) {
      if (++this.misunderstood === 1) console.warn('zephly: invalid message:', error);
      return null;
    }
  }

  private closed(greeted: boolean): void {
    this.socket = null;
    if (this.phase.kind === 'refused') return;
    const proven = greeted && performance.now() - this.openedAt >= PROVEN;
    this.attempts = proven ? 1 : this.attempts + 1;
    const pause = PAUSES[Math.min(this.attempts, PAUSES.length) - 1];
    this.enter({ kind: 'waiting', at: performance.now() + pause, attempts: this.attempts });
    this.timer = window.setTimeout(() => this.retry(), pause);
  }

  private enter(phase: Phase): void {
    this.phase = phase;
    this.listener.phase(phase);
  }
}

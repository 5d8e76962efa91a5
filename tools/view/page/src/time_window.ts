// SPDX-License-Identifier: MIT
/** The span of time of the charts: its length, and whether it runs or is paused. */

export const SPANS = [2, 5, 10, 30];
export const SHORTEST = 1;
export const LONGEST = 30;

export class TimeWindow {
  /** Seconds from the left edge to the right one. */
  seconds = 10;
  /** The right edge while paused; null: running. */
  held: number | null = null;

  get paused(): boolean {
    return this.held !== null;
  }

  /** The next of SPANS, longer (1) or shorter (-1). */
  step(direction: 1 | -1): void {
    const next =
      direction > 0
        ? SPANS.find((span) => span > this.seconds + 1e-9)
        : SPANS.findLast((span) => span < this.seconds - 1e-9);
    if (next !== undefined) this.seconds = next;
  }

  /** Multiplies the span, within its limits. */
  zoom(factor: number): void {
    this.seconds = Math.min(LONGEST, Math.max(SHORTEST, this.seconds * factor));
  }

  /** Moves a paused window by a part of its length, between the times `oldest` and `newest`. */
  pan(part: number, oldest: number, newest: number): void {
    if (this.held === null) return;
    const wanted = this.held + part * this.seconds;
    this.held = Math.min(newest, Math.max(Math.min(newest, oldest + this.seconds), wanted));
  }
}

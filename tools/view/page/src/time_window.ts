/** Which span of time the charts show: how long, and whether it runs or is held. */

export const SPANS = [2, 5, 10, 30];
export const SHORTEST = 1;
export const LONGEST = 30;

export class TimeWindow {
  /** Seconds from the left edge to the right one. */
  seconds = 10;
  /** The right edge while it is held; null: it runs. */
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

  /** Multiplies the span, within what there is. */
  zoom(factor: number): void {
    this.seconds = Math.min(LONGEST, Math.max(SHORTEST, this.seconds * factor));
  }

  /** Moves a held window by a part of its length; `oldest` and `newest` are the times that there are. */
  pan(part: number, oldest: number, newest: number): void {
    if (this.held === null) return;
    const wanted = this.held + part * this.seconds;
    this.held = Math.min(newest, Math.max(Math.min(newest, oldest + this.seconds), wanted));
  }
}

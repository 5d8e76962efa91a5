// SPDX-License-Identifier: MIT
/** Intervals and drawing times of the frames of the last few seconds, in milliseconds. */

const KEPT = 600;

export class FrameTimes {
  private readonly intervals = new Float32Array(KEPT);
  private readonly work = new Float32Array(KEPT);
  private last = 0;
  count = 0;

  /** A frame that began at `begin` and was drawn at `end`, milliseconds of performance.now(). */
  note(begin: number, end: number): void {
    const slot = this.count % KEPT;
    this.intervals[slot] = this.last === 0 ? 0 : begin - this.last;
    this.work[slot] = end - begin;
    this.last = begin;
    ++this.count;
  }

  copy(): { count: number; intervals: Float32Array; work: Float32Array } {
    const kept = Math.min(this.count, KEPT);
    return { count: this.count, intervals: this.intervals.slice(0, kept), work: this.work.slice(0, kept) };
  }
}

// SPDX-License-Identifier: MIT
/**
 * The latest samples of one stream: value, index and time of each, and whether a gap precedes it. Memory is
 * allocated once. A sample whose index is known is not added again, so the history can be sent again after a
 * reconnection.
 */

import type { Samples } from './protocol';

/** Times in seconds of the session never decrease from one sample to the next. */
export class SampleRing {
  readonly times: Float64Array;
  readonly indexes: Float64Array;
  /** One array for each value of a sample. */
  readonly values: readonly Float32Array[];
  /** 1: samples are missing between this sample and the previous one. */
  readonly gapBefore: Uint8Array;
  readonly mask: number;

  /** Positions count all samples that were added; position p is stored at p & mask. */
  end = 0;
  /** The number of samples added, including those that were replaced. */
  received = 0;
  /** The oldest position that has not been replaced. */
  private oldest = 0;
  private nextIndex = 0;
  private nextTime = Number.NEGATIVE_INFINITY;

  constructor(
    readonly rate: number,
    seconds: number,
    readonly width: 1 | 2,
  ) {
    let capacity = 1024;
    while (capacity < rate * seconds) capacity *= 2;
    this.mask = capacity - 1;
    this.times = new Float64Array(capacity);
    this.indexes = new Float64Array(capacity);
    this.gapBefore = new Uint8Array(capacity);
    this.values = Array.from({ length: width }, () => new Float32Array(capacity));
  }

  get begin(): number {
    return Math.max(this.oldest, this.end - this.mask - 1);
  }

  /** Time of the newest sample; -Infinity without one. */
  get lastTime(): number {
    return this.end === 0 ? Number.NEGATIVE_INFINITY : this.times[(this.end - 1) & this.mask];
  }

  /** The next index when nothing is missing. */
  get expectedIndex(): number {
    return this.nextIndex;
  }

  /** Returns the number of samples missing before the new ones; known samples are skipped. */
  take(message: Samples): number {
    const known = Math.max(0, this.nextIndex - message.index);
    if (known >= message.count) return 0;
    const first = message.index + known;
    const missing = this.received === 0 ? 0 : first - this.nextIndex;
    const start = message.time + known / this.rate;
    const gap = this.end > 0 && (missing > 0 || start - this.nextTime > 1.5 / this.rate);
    // When the strap's clock is fast, the program sets the time axis back, and new samples replace those
    // at the same times.
    if (this.lastTime >= start) {
      this.oldest = this.begin;
      this.end = this.positionAt(start);
    }
    for (let i = known; i < message.count; ++i) {
      const slot = this.end & this.mask;
      this.times[slot] = message.time + i / this.rate;
      this.indexes[slot] = message.index + i;
      this.gapBefore[slot] = gap && i === known ? 1 : 0;
      for (let k = 0; k < this.width; ++k) this.values[k][slot] = message.values[i * this.width + k];
      ++this.end;
    }
    this.nextIndex = message.index + message.count;
    this.nextTime = message.time + message.count / this.rate;
    this.received += message.count - known;
    return missing;
  }

  /** The first position whose time is not before `time`; `end` without one. */
  positionAt(time: number): number {
    let low = this.begin;
    let high = this.end;
    while (low < high) {
      const middle = Math.floor((low + high) / 2);
      if (this.times[middle & this.mask] < time) low = middle + 1;
      else high = middle;
    }
    return low;
  }

  /** A copy that later samples do not change. */
  snapshot(): SampleRing {
    const copy = new SampleRing(this.rate, (this.mask + 1) / this.rate, this.width);
    copy.times.set(this.times);
    copy.indexes.set(this.indexes);
    copy.gapBefore.set(this.gapBefore);
    for (let k = 0; k < this.width; ++k) copy.values[k].set(this.values[k]);
    copy.end = this.end;
    copy.oldest = this.oldest;
    copy.received = this.received;
    copy.nextIndex = this.nextIndex;
    copy.nextTime = this.nextTime;
    return copy;
  }
}

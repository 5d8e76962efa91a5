/**
 * The last samples of one stream: value, index and time of each, and where a gap lies before it. Memory is
 * taken once. A sample that is here already (by its index) is not taken again, so a history that is sent
 * anew after a reconnection does no harm.
 */

import type { Samples } from './protocol';

/** Times in seconds of the session never decrease from one sample to the next. */
export class SampleRing {
  readonly times: Float64Array;
  readonly indexes: Float64Array;
  /** One array for each number of a sample. */
  readonly values: readonly Float32Array[];
  /** 1: something is missing between this sample and the one before. */
  readonly gapBefore: Uint8Array;
  readonly mask: number;

  /** Positions count all samples that were put here; position p lies at p & mask. */
  end = 0;
  /** How many samples have been taken, those included that others have taken the place of. */
  received = 0;
  /** Below it places hold other samples by now. */
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

  /** The index that comes next when nothing is missing. */
  get expectedIndex(): number {
    return this.nextIndex;
  }

  /** Gives how many samples are missing before the new ones; those that are known are skipped. */
  take(message: Samples): number {
    const known = Math.max(0, this.nextIndex - message.index);
    if (known >= message.count) return 0;
    const first = message.index + known;
    const missing = this.received === 0 ? 0 : first - this.nextIndex;
    const start = message.time + known / this.rate;
    const gap = this.end > 0 && (missing > 0 || start - this.nextTime > 1.5 / this.rate);
    // A strap whose clock is fast: the program sets the axis of time back, and what comes now takes the place
    // of what lies there.
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

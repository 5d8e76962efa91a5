// SPDX-License-Identifier: MIT
/**
 * The samples of a span of time, reduced to the resolution of a chart: of each group of neighbours the
 * smallest and the largest, in order, at their times. Groups depend on the samples' indexes, not on pixels,
 * so that a moving trace does not flicker.
 */

import type { SampleRing } from './sample_ring';

/** Memory is allocated once; arrays are filled up to `length`, gaps up to `gapCount`. */
export class Reduction {
  readonly x: Float64Array;
  /** One array for each value of a sample. */
  readonly y: readonly Float64Array[];
  length = 0;
  /** Seconds: from the last sample before a gap to the first one after it. */
  readonly gapFrom = new Float64Array(MAX_GAPS);
  readonly gapTo = new Float64Array(MAX_GAPS);
  gapCount = 0;
  /** Minimum and maximum of each value in the span; Infinity and -Infinity without a sample. */
  readonly low: Float64Array;
  readonly high: Float64Array;

  constructor(readonly width: 1 | 2) {
    this.x = new Float64Array(MAX_POINTS);
    this.y = Array.from({ length: width }, () => new Float64Array(MAX_POINTS));
    this.low = new Float64Array(width);
    this.high = new Float64Array(width);
  }

  /** Reduces the samples from `from` to `to` (seconds) and one beyond each end to `columns` pixels. */
  fill(ring: SampleRing, from: number, to: number, columns: number): void {
    this.length = 0;
    this.gapCount = 0;
    this.low.fill(Number.POSITIVE_INFINITY);
    this.high.fill(Number.NEGATIVE_INFINITY);
    const begin = Math.max(ring.begin, ring.positionAt(from) - 1);
    const end = Math.min(ring.end, ring.positionAt(to) + 1);
    const group = groupSize((to - from) * ring.rate, columns);
    let position = begin;
    while (position < end && this.length + 2 <= MAX_POINTS) {
      const slot = position & ring.mask;
      if (ring.gapBefore[slot] === 1 && position > begin) this.noteGap(ring, position);
      const index = ring.indexes[slot];
      const stop = Math.min(end, position + group - (index % group));
      position = this.reduce(ring, position, stop);
    }
  }

  private noteGap(ring: SampleRing, position: number): void {
    if (this.gapCount === MAX_GAPS) return;
    this.gapFrom[this.gapCount] = ring.times[(position - 1) & ring.mask];
    this.gapTo[this.gapCount] = ring.times[position & ring.mask];
    ++this.gapCount;
  }

  /** Reduces one group, which ends before a gap. Returns the position after it. */
  private reduce(ring: SampleRing, begin: number, stop: number): number {
    const first = ring.values[0];
    let lowest = begin;
    let highest = begin;
    let position = begin;
    for (; position < stop; ++position) {
      const slot = position & ring.mask;
      if (position > begin && ring.gapBefore[slot] === 1) break;
      if (first[slot] < first[lowest & ring.mask]) lowest = position;
      if (first[slot] > first[highest & ring.mask]) highest = position;
      for (let k = 0; k < this.width; ++k) {
        const value = ring.values[k][slot];
        if (value < this.low[k]) this.low[k] = value;
        if (value > this.high[k]) this.high[k] = value;
      }
    }
    this.put(ring, Math.min(lowest, highest));
    if (lowest !== highest) this.put(ring, Math.max(lowest, highest));
    return position;
  }

  private put(ring: SampleRing, position: number): void {
    const slot = position & ring.mask;
    this.x[this.length] = ring.times[slot];
    for (let k = 0; k < this.width; ++k) this.y[k][this.length] = ring.values[k][slot];
    ++this.length;
  }
}

/** Room for two points in each column of the widest screens. */
const MAX_POINTS = 16384;
const MAX_GAPS = 256;

/** Samples per column: a power of two, so that a small change of zoom keeps the groups. */
function groupSize(samples: number, columns: number): number {
  let group = 1;
  while (group * 2 <= samples / Math.max(1, columns)) group *= 2;
  return group;
}

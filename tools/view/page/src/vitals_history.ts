// SPDX-License-Identifier: MIT
/**
 * Beats, breaths and rates of the last minutes, in order of time. What is known is not added again, so the
 * history can be sent again after a reconnection.
 */

import type { Beat, Breath, Second, Vitals } from './protocol';

/** As many seconds as the program keeps. */
export const KEPT = 300;

/** Rates are reported each second: a longer pause is a gap. */
const LONGEST_STEP = 2.5;

/** Points of a line; a null breaks it. */
export interface Points {
  x: number[];
  y: (number | null)[];
}

export class VitalsHistory {
  readonly beats: Beat[] = [];
  readonly breaths: Breath[] = [];
  readonly seconds: Second[] = [];
  /** Changes with every message. */
  version = 0;

  take(message: Vitals): void {
    ++this.version;
    add(this.beats, message.beats);
    add(this.breaths, message.breaths);
    add(this.seconds, message.seconds);
  }

  /** The beats from `from` to `to`. */
  beatsWithin(from: number, to: number): Beat[] {
    return this.beats.slice(placeOf(this.beats, from), placeOf(this.beats, to));
  }

  /** A copy that later messages do not change. */
  snapshot(): VitalsHistory {
    const copy = new VitalsHistory();
    copy.beats.push(...this.beats);
    copy.breaths.push(...this.breaths);
    copy.seconds.push(...this.seconds);
    copy.version = this.version;
    return copy;
  }

  /** RR intervals in milliseconds, at the beat that ends each. An artefact is no beat: the line is broken there. */
  tachogram(): Points {
    const points: Points = { x: [], y: [] };
    for (const { t, rr, class: kind } of this.beats) put(points, t, rr === null || kind === 'artefact' ? null : rr * 1000);
    return points;
  }

  /** The breathing rate a minute, `derived` from the ECG or not. */
  breathing(derived: boolean): Points {
    const points: Points = { x: [], y: [] };
    let last = Number.NEGATIVE_INFINITY;
    for (const { t, breathingRate, breathingDerived } of this.seconds) {
      if (points.x.length > 0 && t - last > LONGEST_STEP) put(points, (last + t) / 2, null);
      put(points, t, breathingDerived === derived ? breathingRate : null);
      last = t;
    }
    return points;
  }
}

function put(points: Points, x: number, y: number | null): void {
  points.x.push(x);
  points.y.push(y);
}

/** The first index whose time is not before `time`. */
function placeOf(sorted: readonly { t: number }[], time: number): number {
  let low = 0;
  let high = sorted.length;
  while (low < high) {
    const middle = Math.floor((low + high) / 2);
    if (sorted[middle].t < time) low = middle + 1;
    else high = middle;
  }
  return low;
}

/** A beat that is found late belongs between others. */
function add<T extends { t: number }>(sorted: T[], added: readonly T[]): void {
  for (const one of added) {
    const place = placeOf(sorted, one.t);
    if (sorted[place]?.t !== one.t) sorted.splice(place, 0, one);
  }
  const newest = sorted.at(-1);
  if (newest !== undefined) sorted.splice(0, placeOf(sorted, newest.t - KEPT));
}

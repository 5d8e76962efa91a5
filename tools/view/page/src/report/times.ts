// SPDX-License-Identifier: MIT
/** Times of the session as wall-clock times, in the time zone of the machine that made the report. */

import { clockTime } from '../words';
import type { ReportData } from './data';

const MONTHS = ['Jan', 'Feb', 'Mar', 'Apr', 'May', 'Jun', 'Jul', 'Aug', 'Sep', 'Oct', 'Nov', 'Dec'];
const STEPS = [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200, 86400];
const two = (n: number) => String(n).padStart(2, '0');

export class Times {
  /** Milliseconds of local time at the begin of the session; null: the date is not known. */
  private readonly began: number | null;
  readonly zone: string;

  constructor(clock: ReportData['clock']) {
    this.began = clock === null ? null : clock.began + clock.utcOffset * 1000;
    this.zone = clock === null ? '' : zoneText(clock.zone, clock.utcOffset);
  }

  get known(): boolean {
    return this.began !== null;
  }

  /** "23:14:05", or the time of the session where the date is not known. */
  clock(t: number): string {
    if (this.began === null) return clockTime(t);
    const date = new Date(this.began + t * 1000);
    return `${two(date.getUTCHours())}:${two(date.getUTCMinutes())}:${two(date.getUTCSeconds())}`;
  }

  /** "12 Nov 2026" */
  date(t: number): string | null {
    if (this.began === null) return null;
    const date = new Date(this.began + t * 1000);
    return `${date.getUTCDate()} ${MONTHS[date.getUTCMonth()]} ${date.getUTCFullYear()}`;
  }

  /** Round times within the window, at least `space` pixels apart on a width of `width`. */
  splits(min: number, max: number, width: number, space: number): number[] {
    const least = ((max - min) * space) / Math.max(1, width);
    const step = STEPS.find((one) => one >= least) ?? 86400 * Math.ceil(least / 86400);
    const base = this.began === null ? 0 : this.began / 1000;
    const found: number[] = [];
    for (let n = Math.ceil((base + min) / step); n * step - base <= max; ++n) found.push(n * step - base);
    return found;
  }

  /** Labels of these times; at midnight the date. */
  labels(splits: readonly number[]): string[] {
    const seconds = splits.length > 1 && splits[1] - splits[0] < 60;
    return splits.map((t) => {
      if (this.began === null) return clockTime(t);
      const date = new Date(this.began + t * 1000);
      const clock = this.clock(Math.round(t * 1000) / 1000);
      if (clock === '00:00:00') return `${date.getUTCDate()} ${MONTHS[date.getUTCMonth()]}`;
      return seconds ? clock : clock.slice(0, 5);
    });
  }
}

function zoneText(zone: string, offset: number): string {
  const minutes = Math.round(Math.abs(offset) / 60);
  const utc = offset === 0 ? 'UTC' : `UTC${offset < 0 ? '−' : '+'}${Math.floor(minutes / 60)}${minutes % 60 === 0 ? '' : `:${two(minutes % 60)}`}`;
  return zone === '' || zone === utc ? utc : `${zone}, ${utc}`;
}

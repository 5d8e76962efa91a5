// SPDX-License-Identifier: MIT
/** What the axes of the trends show. */

import { KEPT } from './vitals_history';

/** At the begin of a session, in seconds. */
const SHORTEST = 60;

/** The last five minutes; before, from the begin of the session on. In whole seconds. */
export function trendWindow(now: number): { min: number; max: number } {
  const end = Math.max(SHORTEST, Math.ceil(now));
  return { min: Math.max(0, end - KEPT), max: end };
}

/** In whole tenths of a second around the values. */
export function tachogramRange(low: number | null, high: number | null): [number, number] {
  if (low === null || high === null) return [600, 1000];
  const bottom = Math.max(0, Math.floor((low - 20) / 100) * 100);
  return [bottom, Math.max(bottom + 200, Math.ceil((high + 20) / 100) * 100)];
}

/** From zero. */
export function breathingRange(_low: number | null, high: number | null): [number, number] {
  return [0, Math.max(20, Math.ceil(((high ?? 0) + 1) / 10) * 10)];
}

// SPDX-License-Identifier: MIT
/** Formats numbers for people. */

/** 75.2 as "1:15", for the time of a session. */
export function clockTime(seconds: number): string {
  const whole = Math.max(0, Math.floor(seconds));
  const minutes = Math.floor(whole / 60);
  const rest = String(whole % 60).padStart(2, '0');
  if (minutes < 60) return `${minutes}:${rest}`;
  return `${Math.floor(minutes / 60)}:${String(minutes % 60).padStart(2, '0')}:${rest}`;
}

/** A duration: "4 s", "2 min 5 s", "1 h 3 min". */
export function duration(seconds: number): string {
  const whole = Math.max(0, Math.floor(seconds));
  if (whole < 60) return `${whole} s`;
  if (whole < 3600) return `${Math.floor(whole / 60)} min ${whole % 60} s`;
  return `${Math.floor(whole / 3600)} h ${Math.floor((whole % 3600) / 60)} min`;
}

export function count(n: number): string {
  return n.toLocaleString('en-GB');
}

/** "1 sample", "2 samples". */
export function several(n: number, one: string): string {
  return `${count(n)} ${one}${n === 1 ? '' : 's'}`;
}

/** A number with three significant digits, or another count of them. */
export function brief(value: number, meaningful = 3): string {
  if (value === 0) return '0';
  const digits = Math.max(0, meaningful - 1 - Math.floor(Math.log10(Math.abs(value))));
  return value.toFixed(Math.min(digits, 5));
}

/** With this number of decimals; a dash for NaN. */
export function fixed(value: number | null, digits: number): string {
  return value === null ? '–' : value.toFixed(digits);
}

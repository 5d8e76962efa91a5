// SPDX-License-Identifier: MIT
/** Everything that is drawn on a chart besides traces: grid, hatched spans without data, repetitions, beats. */

import type uPlot from 'uplot';
import type { Exercise, Interval, Repetition } from './live_session';
import type { Beat, BeatClass } from './protocol';
import { colour } from './theme';

/** The intervals of thin and bold grid lines, in seconds, for a window of some length. */
export function paper(seconds: number): { fine: number; bold: number } {
  if (seconds <= 3) return { fine: 0.04, bold: 0.2 };
  if (seconds <= 6) return { fine: 0.1, bold: 0.5 };
  if (seconds <= 15) return { fine: 0.2, bold: 1 };
  return { fine: 1, bold: 5 };
}

/** The colours for drawing, looked up once per theme. */
export class Ink {
  readonly fine = colour('grid-fine');
  readonly bold = colour('grid');
  readonly text = colour('muted');
  readonly strong = colour('text');
  readonly ground = colour('chart');
  readonly bad = colour('hatch');
  readonly band = colour('band');
}

const pixels = () => devicePixelRatio;

export function drawFinePaper(u: uPlot, seconds: number, ink: Ink): void {
  const { left, top, width, height } = u.bbox;
  const { min, max } = u.scales['x'] as { min: number; max: number };
  const step = paper(seconds).fine;
  // Lines closer than 4 pixels would be a grey surface.
  if ((width / pixels()) * (step / seconds) < 4) return;
  u.ctx.save();
  u.ctx.beginPath();
  for (let n = Math.ceil(min / step); n * step <= max; ++n) {
    const x = left + ((n * step - min) / (max - min)) * width;
    u.ctx.moveTo(x, top);
    u.ctx.lineTo(x, top + height);
  }
  u.ctx.setLineDash([]);
  u.ctx.strokeStyle = ink.fine;
  u.ctx.lineWidth = pixels();
  u.ctx.stroke();
  u.ctx.restore();
}

/** A labelled range of values, over the whole width. */
export function drawBand(u: uPlot, scale: string, low: number, high: number, ink: Ink): void {
  const top = u.valToPos(high, scale, true);
  const bottom = u.valToPos(low, scale, true);
  const { left, top: ceiling, width, height } = u.bbox;
  u.ctx.save();
  u.ctx.beginPath();
  u.ctx.rect(left, ceiling, width, height);
  u.ctx.clip();
  u.ctx.fillStyle = ink.band;
  u.ctx.fillRect(left, top, width, bottom - top);
  u.ctx.restore();
}

/** Hatches spans without valid data, with the reason. */
export function drawIntervals(u: uPlot, intervals: readonly Interval[], text: string, ink: Ink, now: number): void {
  const { min, max } = u.scales['x'] as { min: number; max: number };
  for (const { from, to } of intervals) {
    const end = to ?? Math.max(now, from);
    if (end <= min || from >= max) continue;
    hatch(u, toX(u, Math.max(from, min)), toX(u, Math.min(end, max)), text, ink);
  }
}

function hatch(u: uPlot, left: number, right: number, text: string, ink: Ink): void {
  const { ctx } = u;
  const { top, height } = u.bbox;
  ctx.save();
  ctx.beginPath();
  ctx.rect(left, top, right - left, height);
  ctx.clip();
  ctx.setLineDash([]);
  ctx.strokeStyle = ink.bad;
  ctx.lineWidth = 1.5 * pixels();
  ctx.beginPath();
  const step = 12 * pixels();
  // Relative to the span, so that the stripes move with it.
  for (let x = left - height; x < right; x += step) {
    ctx.moveTo(x, top + height);
    ctx.lineTo(x + height, top);
  }
  ctx.globalAlpha = 0.45;
  ctx.stroke();
  ctx.globalAlpha = 1;
  ctx.font = `600 ${12 * pixels()}px system-ui, sans-serif`;
  ctx.textAlign = 'center';
  ctx.textBaseline = 'middle';
  const width = ctx.measureText(text).width + 12 * pixels();
  if (width < right - left) {
    const x = (left + right) / 2;
    const y = top + height - 14 * pixels();
    ctx.fillStyle = ink.ground;
    ctx.fillRect(x - width / 2, y - 10 * pixels(), width, 20 * pixels());
    ctx.fillStyle = ink.strong;
    ctx.fillText(text, x, y);
  }
  ctx.restore();
}

const NAMES: Readonly<Record<Exercise, string>> = { pushUp: 'push-up', sitUp: 'sit-up', jump: 'jump' };

/** A dashed line for each repetition, with a symbol and a name for its kind. */
export function drawRepetitions(u: uPlot, repetitions: readonly Repetition[], ink: Ink): void {
  const { ctx } = u;
  const { min, max } = u.scales['x'] as { min: number; max: number };
  const { top, height, left, width } = u.bbox;
  ctx.save();
  ctx.beginPath();
  ctx.rect(left, top, width, height);
  ctx.clip();
  ctx.font = `600 ${12 * pixels()}px system-ui, sans-serif`;
  ctx.textBaseline = 'middle';
  for (const [i, { t, exercise }] of repetitions.entries()) {
    if (t < min || t > max) continue;
    const x = toX(u, t);
    const next = repetitions[i + 1];
    const room = Math.min(left + width, next === undefined ? Infinity : toX(u, next.t) - 8 * pixels()) - x;
    ctx.strokeStyle = ink.strong;
    ctx.lineWidth = 1.5 * pixels();
    ctx.setLineDash([4 * pixels(), 3 * pixels()]);
    ctx.beginPath();
    ctx.moveTo(x, top + 20 * pixels());
    ctx.lineTo(x, top + height);
    ctx.stroke();
    const wide = ctx.measureText(NAMES[exercise]).width + 14 * pixels();
    const named = wide < room;
    ctx.fillStyle = ink.ground;
    ctx.fillRect(x - 8 * pixels(), top + 2 * pixels(), 8 * pixels() + (named ? wide : 8 * pixels()), 18 * pixels());
    ctx.fillStyle = ink.strong;
    drawExercise(ctx, exercise, x, top + 11 * pixels(), 6 * pixels());
    if (named) ctx.fillText(NAMES[exercise], x + 10 * pixels(), top + 11 * pixels());
  }
  ctx.restore();
}

/** A square for a push-up, a disc for a sit-up, a triangle for a jump. */
export function drawExercise(ctx: CanvasRenderingContext2D, exercise: Exercise, x: number, y: number, r: number): void {
  ctx.beginPath();
  if (exercise === 'sitUp') {
    ctx.arc(x, y, r * 0.9, 0, 2 * Math.PI);
  } else if (exercise === 'jump') {
    ctx.moveTo(x, y - r);
    ctx.lineTo(x + r, y + r * 0.8);
    ctx.lineTo(x - r, y + r * 0.8);
  } else {
    ctx.rect(x - r * 0.85, y - r * 0.85, r * 1.7, r * 1.7);
  }
  ctx.fill();
}

/** A mark at the top for each beat, at the time of its R peak; its shape is the beat's class. */
export function drawBeats(u: uPlot, beats: readonly Beat[], ink: Ink): void {
  if (beats.length === 0) return;
  const { ctx } = u;
  const { top, height, left, width } = u.bbox;
  const y = top + 6 * pixels();
  ctx.save();
  ctx.beginPath();
  ctx.rect(left, top, width, height);
  ctx.clip();
  ctx.setLineDash([]);
  for (const beat of beats) {
    const x = toX(u, beat.t);
    ctx.fillStyle = ink.ground;
    ctx.beginPath();
    ctx.arc(x, y, 6 * pixels(), 0, 2 * Math.PI);
    ctx.fill();
    drawBeat(ctx, beat.class, x, y, 4 * pixels(), ink);
  }
  ctx.restore();
}

/** A disc for a normal beat, an empty diamond for an ectopic one, a cross for an artefact. */
export function drawBeat(ctx: CanvasRenderingContext2D, kind: BeatClass, x: number, y: number, r: number, ink: Ink): void {
  ctx.fillStyle = ink.strong;
  ctx.strokeStyle = ink.strong;
  ctx.lineWidth = 1.75 * pixels();
  ctx.beginPath();
  if (kind === 'normal') {
    ctx.arc(x, y, r * 0.75, 0, 2 * Math.PI);
    ctx.fill();
    return;
  }
  if (kind === 'ectopic') {
    ctx.moveTo(x, y - r * 1.25);
    ctx.lineTo(x + r * 1.25, y);
    ctx.lineTo(x, y + r * 1.25);
    ctx.lineTo(x - r * 1.25, y);
    ctx.closePath();
  } else {
    ctx.moveTo(x - r, y - r);
    ctx.lineTo(x + r, y + r);
    ctx.moveTo(x + r, y - r);
    ctx.lineTo(x - r, y + r);
  }
  ctx.stroke();
}

function toX(u: uPlot, time: number): number {
  return u.valToPos(time, 'x', true);
}

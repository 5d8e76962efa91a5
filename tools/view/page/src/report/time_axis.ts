// SPDX-License-Identifier: MIT
/** The span of time that all charts show, and the selected moment. */

/** In seconds. */
const SHORTEST = 5;

export class TimeAxis {
  min: number;
  max: number;
  /** Null: none is selected. */
  moment: number | null = null;
  private readonly listeners: (() => void)[] = [];

  constructor(
    readonly begin: number,
    readonly end: number,
  ) {
    this.min = begin;
    this.max = end;
  }

  /** `listener` is called after each change. */
  follow(listener: () => void): void {
    this.listeners.push(listener);
  }

  get isWhole(): boolean {
    return this.min <= this.begin && this.max >= this.end;
  }

  /** Shows this span, moved and lengthened as far as necessary. */
  show(from: number, to: number): void {
    const whole = this.end - this.begin;
    const length = Math.min(whole, Math.max(Math.min(SHORTEST, whole), to - from));
    const middle = (from + to) / 2;
    this.min = Math.min(Math.max(this.begin, middle - length / 2), this.end - length);
    this.max = this.min + length;
    this.changed();
  }

  showWhole(): void {
    this.show(this.begin, this.end);
  }

  /** Multiplies the length of the span. The selected moment, or the middle, keeps its place. */
  zoom(factor: number): void {
    const fixed = this.moment !== null && this.moment >= this.min && this.moment <= this.max ? this.moment : (this.min + this.max) / 2;
    this.show(fixed - (fixed - this.min) * factor, fixed + (this.max - fixed) * factor);
  }

  /** Moves the span by a part of its length. */
  pan(part: number): void {
    const way = part * (this.max - this.min);
    this.show(this.min + way, this.max + way);
  }

  /** Selects a moment, and moves the span if it is outside. */
  select(moment: number): void {
    this.moment = Math.min(this.end, Math.max(this.begin, moment));
    const outside = Math.max(0, this.moment - this.max) - Math.max(0, this.min - this.moment);
    this.show(this.min + outside, this.max + outside);
  }

  /** Moves the selected moment by a part of the span. */
  step(part: number): void {
    this.select((this.moment ?? (this.min + this.max) / 2) + part * (this.max - this.min));
  }

  private changed(): void {
    for (const listener of this.listeners) listener();
  }
}

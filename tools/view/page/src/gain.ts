// SPDX-License-Identifier: MIT
/**
 * The range of values that a chart shows: chosen by the user as a gain over the full scale, or automatically
 * ("auto") from the visible values.
 */

export interface Range {
  low: number;
  high: number;
}

/** The gains that the buttons select. */
export const GAINS = [1, 1.5, 2, 3, 5, 7, 10, 15, 20, 30, 50, 70, 100, 150, 200];

/** After this many seconds of much smaller values, auto gain narrows the range. */
const SHRINK_AFTER = 2;

export class Gain {
  private range: Range;
  /** Since when the range is much larger than the visible values. The first values set the range at once. */
  private smallSince: number | null = Number.NEGATIVE_INFINITY;
  private middle: number;

  /** `symmetric`: zero always stays in the middle. */
  constructor(
    readonly full: Range,
    private readonly symmetric: boolean,
    public auto: boolean,
  ) {
    this.range = full;
    this.middle = (full.low + full.high) / 2;
  }

  get current(): Range {
    return this.range;
  }

  /** 1: the full scale. */
  get factor(): number {
    return (this.full.high - this.full.low) / (this.range.high - this.range.low);
  }

  /** Moves by `steps` of GAINS up or down from the current range; ends auto gain. */
  step(steps: number): void {
    const now = this.factor;
    const above = GAINS.findIndex((gain) => gain > now * 1.001);
    const below = GAINS.findLastIndex((gain) => gain < now * 0.999);
    const wanted =
      steps > 0 ? (above < 0 ? GAINS.length - 1 : above + steps - 1) : Math.max(0, below) + steps + 1;
    const factor = GAINS[Math.min(GAINS.length - 1, Math.max(0, wanted))];
    if (this.auto) this.middle = this.symmetric ? 0 : (this.range.low + this.range.high) / 2;
    this.auto = false;
    this.showFactor(factor);
  }

  reset(): void {
    this.auto = false;
    this.middle = (this.full.low + this.full.high) / 2;
    this.range = this.full;
  }

  useAuto(): void {
    this.auto = true;
    this.smallSince = Number.NEGATIVE_INFINITY;
  }

  /** The visible values are between `low` and `high`; `now` in seconds. True when the range has changed. */
  see(low: number, high: number, now: number): boolean {
    if (!this.auto || !(low <= high)) return false;
    const wanted = this.comfortable(low, high);
    const { range } = this;
    if (low < range.low || high > range.high) return this.use(wanted);
    if (wanted.high - wanted.low > 0.6 * (range.high - range.low)) {
      this.smallSince = null;
      return false;
    }
    this.smallSince ??= now;
    return now - this.smallSince >= SHRINK_AFTER ? this.use(wanted) : false;
  }

  private use(range: Range): boolean {
    this.smallSince = null;
    const changed = range.low !== this.range.low || range.high !== this.range.high;
    this.range = range;
    return changed;
  }

  private showFactor(factor: number): void {
    const half = (this.full.high - this.full.low) / 2 / factor;
    // Within the full scale the range must not extend beyond its ends.
    const middle = Math.min(this.full.high - half, Math.max(this.full.low + half, this.middle));
    this.range = { low: middle - half, high: middle + half };
  }

  /** A margin of a tenth above and below, rounded; limited to the full scale for values within it. */
  private comfortable(low: number, high: number): Range {
    const smallest = (this.full.high - this.full.low) / GAINS[GAINS.length - 1];
    if (this.symmetric) {
      const reach = roundUp(Math.max(-low, high, smallest / 2) * 1.1);
      return { low: -reach, high: reach };
    }
    const spread = Math.max(high - low, smallest);
    const step = roundUp(spread / 8);
    return { low: Math.floor((low - spread * 0.1) / step) * step, high: Math.ceil((high + spread * 0.1) / step) * step };
  }
}

/** The next of 1, 1.5, 2, 3, 5, 7 times a power of ten. */
function roundUp(value: number): number {
  const power = 10 ** Math.floor(Math.log10(value));
  for (const digit of [1, 1.5, 2, 3, 5, 7]) if (digit * power >= value) return digit * power;
  return 10 * power;
}

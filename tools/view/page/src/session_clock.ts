// SPDX-License-Identifier: MIT
/**
 * The current time of the session, estimated from the program's messages: the right edge of the charts must
 * move evenly although messages arrive unevenly, at any speed of the session.
 */

interface Sight {
  wall: number;
  session: number;
}

/** The lag of the edge in seconds of the wall clock, so that samples have arrived when it reaches them. */
const LAG = 0.2;
/** Beyond this difference, in seconds of the wall clock, it jumps instead of catching up. */
const JUMP = 1;
/** Without messages for this time, in seconds, the clock stops. */
const PATIENCE = 1;
const SIGHTS = 16;

/** Wall times are seconds of a monotonic clock; session times are seconds since the session began. */
export class SessionClock {
  private sights: Sight[] = [];
  private edgeTime: number | null = null;
  private lastWall = 0;
  private running = false;

  /** The program has reported the session time `session`. */
  observe(session: number, wall: number): void {
    this.sights.push({ wall, session });
    if (this.sights.length > SIGHTS) this.sights.shift();
    this.running = true;
  }

  /** The connection is lost, or the session has ended. */
  stop(): void {
    const last = this.sights.at(-1);
    this.sights = last === undefined ? [] : [last];
    this.running = false;
  }

  /** Resets the clock for another session. */
  reset(): void {
    this.sights = [];
    this.edgeTime = null;
    this.running = false;
  }

  /** Session seconds per second of the wall clock. */
  get speed(): number {
    const first = this.sights[0];
    const last = this.sights.at(-1);
    if (first === undefined || last === undefined || last.wall - first.wall < 0.3) return 1;
    return (last.session - first.session) / (last.wall - first.wall);
  }

  /** The estimated session time, without the lag. */
  at(wall: number): number {
    const last = this.sights.at(-1);
    if (last === undefined) return 0;
    if (!this.running) return last.session;
    return last.session + this.speed * Math.min(wall - last.wall, PATIENCE);
  }

  /** The time at the right edge of the charts, for a frame at `wall`, which must not decrease. */
  edge(wall: number): number {
    const speed = this.running ? this.speed : 0;
    const target = this.running ? this.at(wall) - LAG * speed : this.at(wall);
    const passed = Math.min(0.1, Math.max(0, wall - this.lastWall));
    this.lastWall = wall;
    if (this.edgeTime === null || Math.abs(target - this.edgeTime) > JUMP * Math.max(1, this.speed)) {
      this.edgeTime = target;
      return target;
    }
    const moved = this.edgeTime + speed * passed;
    const corrected = moved + (target - moved) * Math.min(1, 3 * passed);
    this.edgeTime = Math.max(this.edgeTime, corrected);
    return this.edgeTime;
  }
}

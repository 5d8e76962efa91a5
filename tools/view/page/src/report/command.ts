// SPDX-License-Identifier: MIT
/** The command that plays a capture from a moment on. */

import { clockTime } from '../words';

/** For a POSIX shell. */
export function quoted(path: string): string {
  const plain = path.startsWith('-') ? `./${path}` : path;
  return /^[\w@%+=:,./-]+$/.test(plain) ? plain : `'${plain.replaceAll("'", "'\\''")}'`;
}

/** What plays the capture from this moment on. */
export function replayCommand(file: string, t: number): string {
  return `zephly view --replay ${quoted(file)} --from ${clockTime(t)}`;
}

// SPDX-License-Identifier: MIT
/** The host's last line about itself, as headline and detail. docs/troubleshooting.md lists the lines. */

export interface HostProblem {
  /** "Bluetooth: no adapter" */
  reason: string;
  /** What to do, and in parentheses the error of the system if there is one. */
  help: string;
}

/**
 * Null when nothing is wrong: there is no line, or it says that an adapter is ready. A line is
 * "REASON. HELP" or "REASON (ERROR). HELP"; ERROR may contain anything, parentheses included.
 */
export function hostProblem(line: string): HostProblem | null {
  if (line === '' || /^Bluetooth: adapter \S+ is ready\.$/.test(line)) return null;
  const end = endOfSentence(line);
  const sentence = line.slice(0, end);
  const help = line.slice(end + 1).trim();
  const error = /^(.*?) (\(.*\))$/s.exec(sentence);
  if (error === null) return { reason: sentence, help };
  return { reason: error[1], help: `${help} ${error[2]}`.trim() };
}

/** The first full stop that is followed by a space or the end and is not in parentheses. */
function endOfSentence(line: string): number {
  let depth = 0;
  for (let i = 0; i < line.length; ++i) {
    if (line[i] === '(') ++depth;
    else if (line[i] === ')') depth = Math.max(0, depth - 1);
    else if (line[i] === '.' && depth === 0 && (i + 1 === line.length || line[i + 1] === ' ')) return i;
  }
  return line.length;
}

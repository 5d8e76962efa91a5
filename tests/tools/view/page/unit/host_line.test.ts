// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import test from 'node:test';
import { hostProblem } from '../../../../../tools/view/page/src/host_line';

test('a line without an error is a reason and what to do', () => {
  assert.deepEqual(hostProblem('Bluetooth: no adapter. Plug it in; what the kernel says: dmesg'), {
    reason: 'Bluetooth: no adapter',
    help: 'Plug it in; what the kernel says: dmesg',
  });
});

test('the error of the system follows what to do', () => {
  assert.deepEqual(
    hostProblem(
      'Bluetooth: no D-Bus system bus ([org.freedesktop.DBus.Error.FileNotFound] Failed to open bus (No such file or directory). Sorry.). Install it with: sudo apt install dbus',
    ),
    {
      reason: 'Bluetooth: no D-Bus system bus',
      help: 'Install it with: sudo apt install dbus ([org.freedesktop.DBus.Error.FileNotFound] Failed to open bus (No such file or directory). Sorry.)',
    },
  );
});

test('dots within names do not end the reason', () => {
  assert.equal(hostProblem('Bluetooth: the service org.bluez is not there (bluetoothd has stopped). Start it.')?.reason, 'Bluetooth: the service org.bluez is not there');
});

test('a line of one sentence is the reason alone', () => {
  assert.deepEqual(hostProblem('Bluetooth: the system bus does not answer.'), { reason: 'Bluetooth: the system bus does not answer', help: '' });
  assert.deepEqual(hostProblem('something else'), { reason: 'something else', help: '' });
  assert.deepEqual(hostProblem('an open (parenthesis. Help'), { reason: 'an open (parenthesis. Help', help: '' });
});

test('no line, and an adapter that is ready, are no problem', () => {
  assert.equal(hostProblem(''), null);
  assert.equal(hostProblem('Bluetooth: adapter hci0 is ready.'), null);
});

/** The messages of the first table below "Lines of the host". */
function documentedLines(): string[] {
  const page = readFileSync(join(process.env['ZEPHLY_SOURCE_DIR'] ?? '', 'docs/troubleshooting.md'), 'utf8');
  const table = page.split('## Lines of the host')[1].split('| REASON |')[0];
  return [...table.matchAll(/^\| `(Bluetooth: [^`]*)`/gm)].map(([, line]) => line);
}

test('each documented line but one is a problem, with a short reason and what to do', () => {
  const lines = documentedLines();
  assert.ok(lines.length >= 8, `${lines.length} lines`);
  const problems = lines.map((line) => ({ line, problem: hostProblem(line) }));
  assert.deepEqual(problems.filter(({ problem }) => problem === null).map(({ line }) => line), ['Bluetooth: adapter hci0 is ready.']);
  for (const { line, problem } of problems) {
    if (problem === null) continue;
    assert.match(problem.reason, /^Bluetooth: /);
    assert.ok(problem.reason.length < 110 && !problem.reason.includes('('), line);
    assert.notEqual(problem.help, '', line);
  }
});

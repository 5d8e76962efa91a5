// SPDX-License-Identifier: MIT
// Ten minutes of a session at high speed: the page's memory stays bounded.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { endEverything, openBrowser, openTab, PATIENCE, Program, until } from './support.mjs';

let browser;
before(async () => {
  browser = await openBrowser();
});
after(endEverything);

/** Samples of ECG in ten minutes without link losses. */
const TEN_MINUTES = 600 * 500;

/** The bytes that one second of samples of all streams would add, if they were kept as numbers. */
const BYTES_PER_SECOND = (3 * 500 + 2 * 30) * 8;

test('ten minutes of a session do not increase the memory of the page', async (t) => {
  const program = new Program('--simulated', '--seed', '4', '--speed', '40', '--port', '0');
  const address = await program.address();
  const { tab, trouble } = await openTab(browser, address);
  await tab.goto(address);
  const tools = await tab.context().newCDPSession(tab);
  // The minimum of several measurements: garbage is freed by one of the next collections.
  const used = async () => {
    const looks = [];
    for (let i = 0; i < 10; ++i) {
      await tools.send('HeapProfiler.collectGarbage');
      const { usedSize, backingStorageSize } = await tools.send('Runtime.getHeapUsage');
      const { nodes } = await tools.send('Memory.getDOMCounters');
      looks.push({ bytes: usedSize + (backingStorageSize ?? 0), nodes });
    }
    return { bytes: Math.min(...looks.map((one) => one.bytes)), nodes: Math.min(...looks.map((one) => one.nodes)) };
  };
  const received = () => tab.evaluate(() => window.zephly.samples('ecg').received);
  // After two cycles of the training plan the page has shown everything once.
  const patient = { polling: 500, timeout: 4 * PATIENCE };
  await until(tab, () => window.zephly.samples('ecg').received > 30_000, null, patient);
  const begin = await received();
  const early = await used();
  await until(tab, (enough) => window.zephly.samples('ecg').received > enough, begin + TEN_MINUTES, patient);
  const late = await used();
  t.diagnostic(`${(early.bytes / 1e6).toFixed(1)} MB and ${early.nodes} nodes at ${begin} ECG samples, ${(late.bytes / 1e6).toFixed(1)} MB and ${late.nodes} at ${await received()}`);
  assert.ok(late.bytes - early.bytes < 0.25 * 600 * BYTES_PER_SECOND, `${early.bytes} bytes became ${late.bytes}`);
  assert.ok(late.nodes < early.nodes + 200, `${early.nodes} nodes became ${late.nodes}`);
  assert.deepEqual(trouble, []);
  await program.stop();
});

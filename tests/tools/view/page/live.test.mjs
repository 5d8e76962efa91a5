// SPDX-License-Identifier: MIT
// The live page with the real program: traces move, and the page receives the session's samples bit for bit.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { after, before, test } from 'node:test';
import { endEverything, openBrowser, openTab, Program, run, until } from './support.mjs';

let browser;
before(async () => {
  browser = await openBrowser();
});
after(endEverything);

/** The samples received by the page, as plain arrays. */
function received(tab, stream) {
  return tab.evaluate((name) => {
    const { indexes, times, values, received: all } = window.zephly.samples(name);
    // As bits: JSON cannot represent -0 and NaN.
    return { indexes: [...indexes], times: [...times], bits: [...new Uint32Array(values.buffer)], all };
  }, stream);
}

function bits(numbers) {
  return [...new Uint32Array(Float32Array.from(numbers).buffer)];
}

/** The floats of these bits with the six digits of the console, in which `zephly monitor` writes motion values. */
function sixDigits(numbers) {
  return bits([...new Float32Array(Uint32Array.from(numbers).buffer)].map((value) => Number(value.toPrecision(6))));
}

async function filtered(values) {
  const child = spawn(process.env.ZEPHLY_FILTER_ECG, [], { stdio: ['pipe', 'pipe', 'inherit'] });
  const pieces = [];
  child.stdout.on('data', (piece) => pieces.push(piece));
  child.stdin.end(values.map((value) => `${value}\n`).join(''));
  await new Promise((done) => child.on('close', done));
  return Buffer.concat(pieces).toString().trim().split('\n').map(Number);
}

test('receives the samples that the session delivered, bit for bit', async () => {
  const session = ['--simulated', '--seed', '7', '--duration', '29.5'];
  const program = new Program(...session, '--speed', '10', '--port', '0');
  const delivered = (await run('monitor', ...session, '--speed', '1000', '--json')).trim().split('\n').map((line) => JSON.parse(line));
  const of = (...kinds) => delivered.filter(({ event }) => kinds.includes(event));

  const address = await program.address();
  const { tab, trouble } = await openTab(browser, address);
  await tab.goto(address);
  await until(tab, () => window.zephly.state()?.ended === true);

  const ecg = of('ecg').map(({ value }) => value);
  const expected = {
    ecg: { values: ecg, times: of('ecg').map(({ t }) => t) },
    filteredEcg: { values: await filtered(ecg), times: of('ecg').map(({ t }) => t) },
    respiration: { values: of('respiration').map(({ value }) => value), times: of('respiration').map(({ t }) => t) },
    motion: { values: of('motion').flatMap(({ highPassed, displacement }) => [highPassed, displacement]), times: of('motion').map(({ t }) => t) },
  };
  assert.ok(ecg.length > 13_000, `${ecg.length} samples`);
  for (const [stream, { values, times }] of Object.entries(expected)) {
    const page = await received(tab, stream);
    assert.equal(page.all, times.length, stream);
    assert.deepEqual(page.indexes, times.map((_, i) => i), stream);
    assert.deepEqual(stream === 'motion' ? sixDigits(page.bits) : page.bits, bits(values), stream);
    page.times.forEach((time, i) => assert.ok(Math.abs(time - times[i]) < 0.3, `${stream} ${i}: ${time} s, delivered ${times[i]} s`));
  }

  const events = await tab.evaluate(() => window.zephly.events().map(({ t, event }) => [event, t]));
  const repetitions = ['pushUp', 'sitUp', 'jump'];
  assert.deepEqual(
    events.filter(([event]) => repetitions.includes(event)),
    of(...repetitions).map(({ t, event }) => [event, t]),
  );
  assert.equal(await tab.textContent('#pushUps'), String(of('pushUp').length));
  assert.equal(await tab.textContent('#skin .value'), of('temperature').at(-1).object.toFixed(1));
  assert.deepEqual(trouble, []);
  await tab.close();
  await program.stop();
});

test('moves the traces, in its data and in its pixels, without errors', async (t) => {
  const program = new Program('--simulated', '--seed', '3', '--port', '0');
  const address = await program.address();
  const { tab, trouble } = await openTab(browser, address);
  await tab.goto(address);
  await until(tab, () => window.zephly.window().edge > 2);
  const look = () =>
    tab.evaluate(() =>
      [...document.querySelectorAll('.chart')].map((chart) => {
        const { stream } = chart.dataset;
        const drawn = window.zephly.drawn(stream);
        // Only pixels in the colour of the trace: grid and axes move, too.
        const canvas = chart.querySelector('canvas');
        const copy = new OffscreenCanvas(canvas.width, canvas.height).getContext('2d', { willReadFrequently: true });
        copy.drawImage(canvas, 0, 0);
        const { data } = copy.getImageData(0, 0, canvas.width, canvas.height);
        const colour = getComputedStyle(document.documentElement).getPropertyValue(`--${stream === 'motion' ? 'displacement' : stream}`);
        const [r, g, b] = colour.trim().match(/[0-9a-f]{2}/gi).map((digits) => parseInt(digits, 16));
        const pixels = [];
        for (let i = 0; i < data.length; i += 4) {
          if (Math.abs(data[i] - r) + Math.abs(data[i + 1] - g) + Math.abs(data[i + 2] - b) < 30) pixels.push(i / 4);
        }
        return { stream, newest: drawn.times.at(-1), points: drawn.times.length, pixels };
      }),
    );
  const first = await look();
  await until(tab, (edge) => window.zephly.window().edge > edge + 1, await tab.evaluate(() => window.zephly.window().edge));
  const second = await look();
  assert.equal(first.length, 4);
  first.forEach(({ stream, newest, pixels }, i) => {
    assert.ok(second[i].newest > newest + 0.5, `${stream}: ${newest} s, then ${second[i].newest} s`);
    assert.ok(second[i].points > 10, stream);
    assert.ok(pixels.length > 100, `${stream}: ${pixels.length} pixels`);
    assert.notDeepEqual(second[i].pixels, pixels, stream);
  });

  // Printed for people; times are not asserted.
  const { intervals, work } = await tab.evaluate(() => {
    const frames = window.zephly.frames();
    return { intervals: [...frames.intervals.slice(30)], work: [...frames.work.slice(30)] };
  });
  const sorted = (all) => all.sort((a, b) => a - b);
  // A very slow machine may draw only the frames that are excluded.
  const part = (all, share) => sorted(all)[Math.floor(all.length * share)]?.toFixed(1) ?? 'unknown';
  t.diagnostic(`${intervals.length} frames: each ${part(intervals, 0.5)} ms (95 %: ${part(intervals, 0.95)} ms), drawing ${part(work, 0.5)} ms (95 %: ${part(work, 0.95)} ms)`);
  assert.deepEqual(trouble, []);
  await tab.close();
  await program.stop();
});

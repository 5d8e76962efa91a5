// SPDX-License-Identifier: MIT
// The page of `zephly report`, opened as a file: what it draws, its keys, and that it requests nothing.
import assert from 'node:assert/strict';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { pathToFileURL } from 'node:url';
import { endEverything, endLater, openBrowser, openTab, run, until } from './support.mjs';

const HOSTILE = 'Walk </script><img src="http://127.0.0.1:9/x" onerror="document.title=1"> & "quotes"';

let browser;
let page;
let data;
before(async () => {
  const folder = mkdtempSync(join(tmpdir(), 'zephly-report-'));
  endLater(() => rmSync(folder, { recursive: true }));
  const capture = join(folder, "anna's walk.zcap");
  await run('record', capture, '--simulated', '--seed', '1', '--duration', '120', '--speed', '1000');
  page = join(folder, 'walk.html');
  await run('report', capture, '--out', page, '--title', HOSTILE);
  data = dataOf(readFileSync(page, 'utf8'));
  browser = await openBrowser();
});
after(endEverything);

const DATA = /(<script type="application\/json" id="data">)(.*?)(<\/script>)/s;
const dataOf = (document) => JSON.parse(DATA.exec(document)[2]);

/** A tab with the report; at the end nothing was requested but the file, and there was no error. */
async function withReport(use, context = {}, path = page) {
  const { tab, trouble } = await openTab(browser, 'null', context);
  const requests = [];
  tab.on('request', (request) => requests.push(request.url()));
  const address = pathToFileURL(path).href;
  await tab.goto(address);
  await drawn(tab);
  await use(tab);
  assert.deepEqual(requests, [address]);
  assert.deepEqual(trouble, []);
  await tab.close();
}

/** The report with other data, as a file. */
function edited(name, change) {
  const changed = structuredClone(data);
  change(changed);
  const path = `${page}.${name}.html`;
  writeFileSync(path, readFileSync(page, 'utf8').replace(DATA, (_all, begin, _old, end) => begin + JSON.stringify(changed).replaceAll('<', '\\u003c') + end));
  return path;
}

const drawn = (tab) => tab.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));

/** How many pixels of a chart have the colour of that name, between two times of the shown span. */
function inked(tab, chart, colour, from, to, [min, max] = [0, data.duration]) {
  return tab.evaluate(([id, name, left, right]) => {
    const panel = document.querySelector(`[data-chart=${id}]`);
    const canvas = panel.querySelector('canvas');
    const over = panel.querySelector('.u-over').getBoundingClientRect();
    const outer = canvas.getBoundingClientRect();
    const copy = new OffscreenCanvas(canvas.width, canvas.height).getContext('2d');
    copy.drawImage(canvas, 0, 0);
    const x = Math.round(over.left - outer.left + over.width * left);
    const pixels = copy.getImageData(x, Math.round(over.top - outer.top), Math.max(1, Math.round(over.width * (right - left))), Math.round(over.height)).data;
    const wanted = getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim().match(/[0-9a-f]{2}/gi).map((digits) => parseInt(digits, 16));
    // Hatching is translucent.
    const least = name === 'hatch' ? 80 : 128;
    let count = 0;
    for (let i = 0; i < pixels.length; i += 4) {
      if (pixels[i + 3] > least && wanted.every((part, k) => Math.abs(part - pixels[i + k]) < 24)) ++count;
    }
    return count;
  }, [chart, colour, (from - min) / (max - min), (to - min) / (max - min)]);
}

const text = (tab, selector) => tab.textContent(selector);

test('a report opens as a file, requests nothing and draws its charts', () =>
  withReport(async (tab) => {
    const charts = { heart: 'ecg', tachogram: 'ecg', breathing: 'respiration', quality: 'respiration', lanes: 'ecg', temperature: 'displacement', battery: 'displacement' };
    for (const [id, colour] of Object.entries(charts)) assert.ok((await inked(tab, id, colour, 0, data.duration)) > 50, id);
    assert.ok((await inked(tab, 'poincare', 'ecg', 0, data.duration)) > 20);
    for (const strip of data.strips) assert.ok((await inked(tab, `strip-${strip.reason}`, 'ecg', 0, data.duration)) > 200, strip.reason);
    assert.ok(data.strips.length > 0);
    const labels = await tab.$$eval('canvas', (all) => all.map((canvas) => [canvas.getAttribute('role'), canvas.ariaLabel.length > 20]));
    assert.deepEqual(labels, labels.map(() => ['img', true]));
    assert.equal(labels.length, 8 + data.strips.length);
  }));

test('the numbers are those of the data, and texts stay texts', () =>
  withReport(async (tab) => {
    assert.equal(await text(tab, 'h1'), HOSTILE);
    assert.equal(await tab.title(), `${HOSTILE} – Zephly report`);
    const tiles = Object.fromEntries(await tab.$$eval('.tile', (all) => all.map((tile) => [tile.querySelector('dt').textContent, tile.querySelector('.value').textContent])));
    assert.equal(tiles['Heart rate'], `${data.vitals.heartRate.median.toFixed(0)} /min`);
    assert.equal(tiles['Breathing'], `${data.vitals.breathingRate.median.toFixed(1)} /min`);
    assert.equal(tiles['Beats'], String(data.vitals.beats.count));
    assert.equal(tiles['RMSSD'], `${data.vitals.hrv.rmssd.toFixed(1)} ms`);
    assert.equal(tiles['Electrodes on the skin'], `${(100 * data.contact.share).toFixed(0)} %`);
    const rows = await tab.$$eval('.windows tbody tr', (all) => all.map((row) => [...row.children].map((cell) => cell.textContent)));
    assert.equal(rows.length, 1 + data.windows.length);
    assert.deepEqual(rows[0].slice(4, 7), [data.vitals.hrv.meanNN.toFixed(0), data.vitals.hrv.sdnn.toFixed(1), data.vitals.hrv.rmssd.toFixed(1)]);
    const events = await tab.$$eval('.events tbody tr', (all) => all.map((row) => row.textContent));
    assert.ok(events.some((row) => row.includes('link lost')), events.join('\n'));
    assert.match(await text(tab, '.warning'), /^Not a medical device\./);
  }));

test('nothing is drawn where nothing is known', () =>
  withReport(async (tab) => {
    const loss = data.events.find(({ event }) => event === 'link lost');
    // The last second, whose point is at its end, may have begun before the loss.
    const [from, to] = [loss.t + 1, loss.t + loss.duration - 0.1];
    for (const [id, colour] of [['heart', 'ecg'], ['tachogram', 'ecg'], ['breathing', 'respiration'], ['quality', 'ecg'], ['lanes', 'ecg']]) {
      assert.equal(await inked(tab, id, colour, from, to), 0, id);
      assert.ok((await inked(tab, id, colour, to, data.duration)) > 0, id);
    }
    assert.ok((await inked(tab, 'heart', 'hatch', loss.t, loss.t + loss.duration)) > 20);
  }));

test('everything can be done with the keyboard, and all charts follow', () =>
  withReport(async (tab) => {
    const whole = await text(tab, '.shown');
    await tab.focus('[data-chart=heart]');
    await tab.keyboard.press('ArrowRight');
    await drawn(tab);
    const readouts = await tab.$$eval('.readout', (all) => all.map((one) => one.textContent.split(': ')[0]));
    assert.equal(readouts.length, 7);
    assert.ok(readouts.every((one) => one === readouts[0] && one !== ''), readouts.join());
    // In the middle at first; a step is a fiftieth.
    assert.match(await text(tab, 'code'), /^zephly view --replay '.*\/anna'\\''s walk\.zcap' --from 1:02$/);
    await tab.keyboard.press('Shift+ArrowLeft');
    assert.match(await text(tab, 'code'), / --from 0:38$/);
    await tab.keyboard.press('+');
    await tab.keyboard.press('+');
    await drawn(tab);
    const zoomed = await text(tab, '.shown');
    assert.match(zoomed, / · 30 s$/);
    // With a quarter of the time the marker's line is in each chart.
    for (const id of ['heart', 'battery']) assert.ok((await inked(tab, id, 'text', 0, data.duration)) > 50, id);
    await tab.keyboard.press('-');
    assert.notEqual(await text(tab, '.shown'), zoomed);
    await tab.keyboard.press('0');
    assert.equal(await text(tab, '.shown'), whole);
    const focusable = await tab.$$eval('button:not([hidden]), [tabindex="0"]', (all) => all.map((one) => one.ariaLabel ?? one.textContent));
    assert.ok(focusable.length >= 6 + 7 + 2 && focusable.every((name) => name !== ''), focusable.join());
    await tab.keyboard.press('t');
    assert.equal(await tab.evaluate(() => document.documentElement.dataset.theme), 'dark');
    await drawn(tab);
    // In the colours of the theme.
    for (const chart of ['heart', 'poincare']) assert.ok((await inked(tab, chart, 'ecg', 0, data.duration)) > 20, chart);
    // The arrow keys scroll a table.
    const command = await text(tab, 'code');
    await tab.focus('.scroll');
    await tab.keyboard.press('ArrowRight');
    assert.equal(await text(tab, 'code'), command);
  }));

test('a span is selected by dragging, the whole by a double click', () =>
  withReport(async (tab) => {
    const whole = await text(tab, '.shown');
    const box = await (await tab.$('[data-chart=tachogram] .u-over')).boundingBox();
    const y = box.y + box.height / 2;
    await tab.mouse.move(box.x + box.width / 4, y);
    await tab.mouse.down();
    await tab.mouse.move(box.x + box.width / 2, y, { steps: 4 });
    await tab.mouse.up();
    await until(tab, () => / · (29|30) s$/.test(document.querySelector('.shown').textContent));
    assert.equal(await text(tab, 'code'), '', 'a drag selects no moment');
    await tab.mouse.dblclick(box.x + 40, y);
    await until(tab, (shown) => document.querySelector('.shown').textContent === shown, whole);
  }));

test('print is light and complete, and the screen as before after it', () =>
  withReport(async (tab) => {
    await tab.evaluate(() => {
      window.seen = [];
      addEventListener('beforeprint', () => window.seen.push(document.documentElement.dataset.theme, document.querySelector('[data-chart=heart] canvas').width));
    });
    const chartWidth = () => tab.evaluate(() => document.querySelector('[data-chart=heart] canvas').width);
    const before = await chartWidth();
    const pdf = await tab.pdf({ preferCSSPageSize: true });
    assert.ok(pdf.length > 20_000);
    const [theme, width] = await tab.evaluate(() => window.seen);
    assert.equal(theme, 'light');
    assert.ok(width < 720, `${width} pixels are wider than the paper`);
    assert.equal(await tab.evaluate(() => document.documentElement.dataset.theme), 'dark');
    assert.equal(await chartWidth(), before);
    assert.ok((await inked(tab, 'heart', 'ecg', 0, data.duration)) > 50, 'in the colours of the screen');
  }, { colorScheme: 'dark' }));

test('artefacts have no interval, and a rate from the ECG is dashed', async () => {
  const inkOfBreathing = async (derived) => {
    let ink = 0;
    const path = edited(`derived-${derived}`, ({ seconds, beats }) => {
      seconds.breathingDerived.fill(derived);
      beats.class = [...beats.class].map((kind, i) => (beats.t[i] > 60 ? 'a' : kind)).join('');
    });
    await withReport(async (tab) => {
      assert.ok((await inked(tab, 'tachogram', 'ecg', 0, 60)) > 50);
      assert.equal(await inked(tab, 'tachogram', 'ecg', 61, data.duration), 0);
      ink = await inked(tab, 'breathing', 'respiration', 0, data.duration);
    }, {}, path);
    return ink;
  };
  const dashed = await inkOfBreathing(1);
  const solid = await inkOfBreathing(0);
  assert.ok(dashed > 20 && dashed < 0.8 * solid, `${dashed} of ${solid} pixels`);
});

test('a damaged and empty recording without a date is a report, too', () => {
  const path = edited('empty', (empty) => {
    for (const series of [empty.seconds, empty.beats, empty.temperature, empty.battery]) {
      for (const key of Object.keys(series)) series[key] = key === 'class' ? '' : [];
    }
    const none = { median: null, lowest: null, highest: null, known: 0 };
    const hrv = Object.fromEntries(Object.keys(empty.vitals.hrv).map((key) => [key, key === 'nn' || key === 'share' ? 0 : null]));
    const vitals = { ...empty.vitals, heartRate: none, breathingRate: none, hrv, beats: { count: 0, normal: 0, ectopic: 0, artefact: 0 }, breaths: { count: 0, derived: 0 } };
    Object.assign(empty, { clock: null, duration: 0, complaints: ['walk.zcap: damaged at byte 12'], contact: { share: null, intervals: [] }, windows: [], events: [], strips: [], vitals });
  });
  return withReport(async (tab) => {
    assert.match(await text(tab, '.banner'), /damaged or incomplete.*walk\.zcap: damaged at byte 12/s);
    const values = await tab.$$eval('.tile .value', (all) => all.map((one) => one.textContent));
    assert.ok(values.filter((value) => value === '–').length >= 6, values.join());
    assert.ok((await tab.$$('.chart canvas')).length === 8);
  }, { viewport: { width: 390, height: 844 } }, path);
});

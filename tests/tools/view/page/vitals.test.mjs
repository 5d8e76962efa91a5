// SPDX-License-Identifier: MIT
// Heart rate and breathing on the page: the numbers, the marks of the beats, and the trends.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { FakeProgram } from './fake_program.mjs';
import { beat, hello, samples, second, state, vitals } from './messages.mjs';
import { endEverything, openBrowser, openTab, Program, run, until } from './support.mjs';

let browser;
before(async () => {
  browser = await openBrowser();
});
after(endEverything);

/** Texts of a tile. */
async function tile(tab, id) {
  return tab.evaluate((name) => ['.value', '.detail'].map((part) => document.querySelector(`#${name} ${part}`).textContent), id);
}

const shows = (tab, id, value, detail) =>
  until(tab, ([name, text, more]) => {
    const one = document.querySelector(`#${name}`);
    return one.querySelector('.value').textContent === text && one.querySelector('.detail').textContent === more;
  }, [id, value, detail]);

async function withFake(use, context = {}) {
  const fake = await new FakeProgram().start();
  const { tab, trouble } = await openTab(browser, fake.address, context);
  await tab.goto(fake.address);
  await until(tab, () => window.zephly.session() !== null);
  await use(tab, fake);
  assert.deepEqual(trouble, []);
  await tab.close();
}

/** The pixels of the ECG's canvas in the strip of the marks that have the colour of marks, `around` pixels to both sides of a time: by row. */
function marked(tab, time, around) {
  return tab.evaluate(([t, reach]) => {
    const chart = document.querySelector('[data-stream=ecg]');
    const canvas = chart.querySelector('canvas');
    const over = chart.querySelector('.u-over').getBoundingClientRect();
    const outer = canvas.getBoundingClientRect();
    const { edge, seconds } = window.zephly.window();
    const x = over.left - outer.left + over.width * (1 - (edge - t) / seconds);
    const copy = new OffscreenCanvas(canvas.width, canvas.height).getContext('2d', { willReadFrequently: true });
    copy.drawImage(canvas, 0, 0);
    const width = 2 * reach;
    const { data } = copy.getImageData(Math.round(x - reach), Math.round(over.top - outer.top), width, 13);
    const [r, g, b] = getComputedStyle(document.documentElement).getPropertyValue('--text').trim().match(/[0-9a-f]{2}/gi).map((digits) => parseInt(digits, 16));
    const rows = new Array(13).fill(0);
    for (let i = 0; i < data.length; i += 4) {
      if (data[i + 3] > 128 && Math.abs(data[i] - r) + Math.abs(data[i + 1] - g) + Math.abs(data[i + 2] - b) < 120) ++rows[Math.floor(i / 4 / width)];
    }
    return rows;
  }, [time, around]);
}

const inked = async (tab, time) => (await marked(tab, time, 4)).reduce((sum, one) => sum + one, 0);

/** The heights of the strokes that cross the vertical line at a time. */
async function strokes(tab, time) {
  const rows = await marked(tab, time, 1);
  return rows.map((one) => (one > 0 ? '#' : ' ')).join('').split(/ +/).filter((run) => run !== '').map((run) => run.length);
}

test('the rates are shown with their quality, and are a dash with the reason while they are unknown', () =>
  withFake(async (tab, fake) => {
    fake.say(state({ vitals: null }));
    await shows(tab, 'heart', '–', 'not known');
    fake.say(state({ vitals: second() }));
    await shows(tab, 'heart', '72', 'quality 97 %');
    await shows(tab, 'breathing', '14', 'quality 80 %');
    fake.say(state({ vitals: second({ heartRate: null, breathingDerived: true }) }));
    await shows(tab, 'heart', '–', 'not known');
    await shows(tab, 'breathing', '14', 'quality 80 %, from the ECG');
    fake.say(state({ vitals: second({ breathingRate: null, breathingDerived: true }) }));
    await shows(tab, 'heart', '72', 'quality 97 %');
    await shows(tab, 'breathing', '–', 'not known');
    fake.say(state({ vitals: null, electrodesOff: true }));
    await shows(tab, 'heart', '–', 'electrodes off');
    await shows(tab, 'breathing', '–', 'electrodes off');
    fake.say(state({ vitals: null, connected: false, disconnections: 1 }));
    await shows(tab, 'heart', '–', 'no link');
    fake.say(state({ vitals: null, ended: true }));
    await shows(tab, 'heart', '–', 'session ended');
  }));

test('the rates vanish when the program does not respond', () =>
  withFake(async (tab, fake) => {
    fake.say(state({ vitals: second() }));
    await shows(tab, 'heart', '72', 'quality 97 %');
    await fake.stop();
    await shows(tab, 'heart', '–', 'no data');
    await shows(tab, 'breathing', '–', 'no data');
  }));

test('a mark is above each beat at the time of its R peak, in another shape for another class', () =>
  withFake(async (tab, fake) => {
    const beats = [beat(3), beat(5, { class: 'ectopic' }), beat(7, { class: 'artefact' })];
    fake.say(state({ now: 10 }), samples('ecg', 0, 0, new Array(4096).fill(0)), vitals({ beats }));
    await until(tab, () => window.zephly.window().edge > 9 && window.zephly.vitals().beats.length === 3);
    await tab.keyboard.press('Space');
    await until(tab, () => window.zephly.window().paused);
    await tab.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
    const marks = await Promise.all(beats.map(({ t }) => inked(tab, t)));
    for (const count of marks) assert.ok(count > 8, String(marks));
    assert.equal(await inked(tab, 4), 0);
    // Down the middle of a disc there is one long line, of an empty diamond two ends, of a cross one short line.
    const lines = await Promise.all(beats.map(({ t }) => strokes(tab, t)));
    assert.deepEqual(lines.map((all) => all.length), [1, 2, 1], JSON.stringify(lines));
    assert.ok(lines[0][0] > lines[2][0], JSON.stringify(lines));
  }));

test('a pause keeps the marks', () =>
  withFake(async (tab, fake) => {
    fake.say(state({ now: 10 }), vitals({ beats: [beat(5)] }));
    await until(tab, () => window.zephly.window().edge > 9 && window.zephly.vitals().beats.length === 1);
    await tab.keyboard.press('Space');
    await until(tab, () => window.zephly.window().paused);
    // More than five minutes later the first beat is forgotten.
    fake.say(state({ now: 400 }), vitals({ beats: [beat(399)] }));
    await until(tab, () => window.zephly.vitals().beats.every(({ t }) => t === 399));
    await tab.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
    assert.ok((await inked(tab, 5)) > 8);
  }));

test('the trends have names that describe what they show', () =>
  withFake(async (tab, fake) => {
    const name = (id) => tab.getAttribute(`[data-trend=${id}] canvas`, 'aria-label');
    fake.say(state({ now: 10 }));
    await until(tab, () => document.querySelector('[data-trend=tachogram] canvas').ariaLabel?.endsWith(': none'));
    assert.equal(await name('breathing'), 'Breathing rate, last 5 minutes: not known');
    const beats = [beat(1, { rr: null }), beat(2, { rr: 0.7 }), beat(3, { rr: 0.8 }), beat(4, { rr: 0.9 }), beat(5, { rr: 0.4, class: 'ectopic' })];
    fake.say(vitals({ beats, seconds: [second({ t: 8, breathingRate: 12 }), second({ t: 9, breathingRate: 16 })] }));
    await until(tab, () => document.querySelector('[data-trend=tachogram] canvas').ariaLabel.includes('median'));
    assert.equal(await name('tachogram'), 'RR intervals, last 5 minutes: 3 intervals from 700 to 900 milliseconds, median 800');
    assert.equal(await name('breathing'), 'Breathing rate, last 5 minutes: from 12 to 16 a minute, known for 2 seconds');
    assert.equal(await tab.getAttribute('[data-trend=tachogram] canvas', 'role'), 'img');
  }));

test('the rates of a session appear within ten seconds of contact, and vanish when the electrodes come off', async () => {
  const session = ['--simulated', '--seed', '1', '--duration', '14'];
  const delivered = (await run('monitor', ...session, '--speed', '1000', '--json')).trim().split('\n').map((line) => JSON.parse(line));
  const program = new Program(...session, '--speed', '2', '--port', '0');
  const address = await program.address();
  const { tab, trouble } = await openTab(browser, address);
  await tab.addInitScript(() => {
    window.seen = [];
    setInterval(() => {
      const { now, electrodesOff } = window.zephly?.state() ?? {};
      const [heart, breathing] = ['heart', 'breathing'].map((id) => document.querySelector(`#${id} .value`)?.textContent);
      if (now !== undefined) window.seen.push({ now, electrodesOff, heart, breathing });
    }, 50);
  });
  await tab.goto(address);
  await until(tab, () => window.zephly.state()?.ended === true);
  const seen = await tab.evaluate(() => window.seen);
  const contact = delivered.find(({ event, value }) => event === 'leadoff' && value === false).t;
  const off = delivered.find(({ event, value, t }) => event === 'leadoff' && value === true && t > contact).t;
  for (const [rate, low, high] of [['heart', 40, 180], ['breathing', 8, 30]]) {
    const known = seen.filter((one) => one[rate] !== '–' && one[rate] !== undefined);
    assert.ok(known.length > 0, `no rate: ${rate}`);
    assert.ok(known[0].now < contact + 10, `${rate} after ${known[0].now - contact} s`);
    assert.ok(known.every((one) => Number(one[rate]) > low && Number(one[rate]) < high), JSON.stringify(known[0]));
  }
  // The page writes its numbers ten times a second.
  const without = seen.filter(({ now, electrodesOff }) => electrodesOff && now > off + 0.5);
  assert.ok(without.length > 0, 'no loss of contact');
  assert.deepEqual(without.filter(({ heart, breathing }) => heart !== '–' || breathing !== '–'), []);

  // The beats are those of the JSON lines, on the axis of the curve.
  const page = await tab.evaluate(() => window.zephly.vitals().beats);
  const beats = delivered.filter(({ event }) => event === 'beat');
  assert.equal(page.length, beats.length);
  page.forEach((one, i) => assert.ok(Math.abs(one.t - beats[i].at) < 0.05, `${one.t} s and ${beats[i].at} s`));
  assert.deepEqual(page.map((one) => one.class), beats.map((one) => one.class));
  assert.deepEqual(trouble, []);
  await tab.close();
  await program.stop();
});

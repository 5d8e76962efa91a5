// SPDX-License-Identifier: MIT
// The page shows faults and recovers from them: strap, electrodes, program, slow viewer.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { FakeProgram } from './fake_program.mjs';
import { hello, samples, state } from './messages.mjs';
import { endEverything, openBrowser, openTab, Program, until } from './support.mjs';

let browser;
before(async () => {
  browser = await openBrowser();
});
after(endEverything);

/** The browser's console error for a refused connection. */
const refused = /ERR_CONNECTION_REFUSED/;

/** Changes of a state before the first connection. */
const NO_LINK = { connected: false, linkChanged: null, connections: 0, electrodesOff: null };

/** Waits until the tile is in this state, and returns what the page shows and announces at that time. */
async function shown(tab, id, level) {
  const look = ({ id, level }) => {
    const tile = document.querySelector(`#${id}`);
    const icon = document.querySelector(`#${id}-icon`).getAttribute('href');
    const announced = document.querySelector('#assertive').textContent;
    const other = document.querySelector(id === 'link' ? '#electrodes' : '#link').dataset.state;
    return tile.dataset.state === level && { text: tile.textContent, icon, announced, other, title: document.title };
  };
  return (await until(tab, look, { id, level })).jsonValue();
}

async function fakeTab(program) {
  const opened = await openTab(browser, program.address);
  await opened.tab.goto(program.address);
  await until(opened.tab, () => window.zephly.phase() === 'live');
  return opened;
}

test('shows a lost link and missing electrode contact prominently', async () => {
  const program = new Program('--simulated', '--seed', '1', '--speed', '4', '--port', '0');
  const address = await program.address();
  const { tab, trouble } = await openTab(browser, address);
  await tab.goto(address);

  const off = await shown(tab, 'electrodes', 'bad');
  assert.match(off.text, /Electrodes off.*no contact/s);
  assert.equal(off.icon, '#icon-bad');
  assert.match(off.announced, /Electrodes off/);
  assert.match(off.title, /⚠ Electrodes off/);
  assert.match((await shown(tab, 'electrodes', 'good')).text, /On the skin/);

  const lost = await shown(tab, 'link', 'bad');
  assert.match(lost.text, /Link lost.*searching/s);
  assert.equal(lost.icon, '#icon-bad');
  assert.match(lost.announced, /lost/);
  assert.match(lost.title, /⚠ Link lost/);
  assert.equal(lost.other, 'unknown');
  await shown(tab, 'link', 'good');
  await until(tab, () => window.zephly.drawn('ecg').gaps.length > 0);
  const [from, to] = await tab.evaluate(() => window.zephly.drawn('ecg').gaps[0]);
  // The link is lost every 30 s; a slow machine may have missed the first time.
  const cycle = from - (from % 30);
  assert.ok(from - cycle > 26 && from - cycle < 27 && to - cycle > 27.5 && to - cycle < 28.5, `a gap from ${from} s to ${to} s`);
  assert.match(await tab.textContent('#losses'), /[0-9]:[25]6.*s.*timed out/s);
  assert.deepEqual(await tab.evaluate(() => window.zephly.missed()), { ecg: 0, filteredEcg: 0, respiration: 0, motion: 0 });
  assert.deepEqual(trouble, []);
  await tab.close();
  await program.stop();
});

test('restores the history after a reload, reports a killed program and connects to its successor', async () => {
  const options = ['--simulated', '--seed', '5', '--speed', '2'];
  const program = new Program(...options, '--port', '0');
  const address = await program.address();
  const { tab, trouble } = await openTab(browser, address);
  await tab.goto(address);
  await until(tab, () => window.zephly.window().edge > 4);
  const look = () =>
    tab.evaluate(() => {
      const { indexes, values } = window.zephly.samples('ecg');
      return { indexes: [...indexes], values: [...values], session: window.zephly.session() };
    });
  const old = await look();
  await tab.reload();
  await until(tab, (edge) => window.zephly.window().edge > edge, await tab.evaluate(() => 6));
  const anew = await look();
  assert.equal(anew.session, old.session);
  assert.deepEqual(anew.indexes, anew.indexes.map((_, i) => i));
  assert.deepEqual(anew.values.slice(0, old.values.length), old.values);

  await program.stop('SIGKILL');
  await until(tab, () => window.zephly.phase() === 'waiting' && !document.querySelector('#program').hidden);
  assert.match(await tab.textContent('#program'), /not responding.*old data.*Retrying in \d s/s);
  assert.equal(await tab.getAttribute('#link', 'data-state'), 'unknown');
  assert.match(await tab.title(), /Not responding/);

  const successor = new Program(...options, '--port', new URL(address).port);
  assert.equal(await successor.address(), address);
  await until(tab, (session) => window.zephly.session() !== session, old.session);
  await until(tab, () => window.zephly.phase() === 'live' && document.querySelector('#program').hidden);
  await until(tab, () => window.zephly.samples('ecg').received > 500);
  assert.equal((await look()).indexes[0], 0);
  assert.deepEqual(trouble.filter((line) => !refused.test(line)), []);
  await tab.close();
  await successor.stop();
});

test('after a short absence of the program it has no duplicates and reports missing samples', async () => {
  const program = await new FakeProgram().start();
  const ramp = (from, to) => Array.from({ length: to - from }, (_, i) => (from + i) / 1000);
  program.greeting = (viewer) => [hello(), state(), samples('ecg', 0, 8, ramp(0, 500))].forEach(viewer.say);
  const { tab } = await fakeTab(program);
  await until(tab, () => window.zephly.samples('ecg').received === 500);

  program.greeting = (viewer) => [hello({ now: 12 }), state({ now: 12 }), samples('ecg', 200, 8.4, ramp(200, 700))].forEach(viewer.say);
  for (const viewer of program.viewers) viewer.leave();
  await until(tab, () => window.zephly.samples('ecg').received === 700);
  const { indexes, values } = await tab.evaluate(() => {
    const all = window.zephly.samples('ecg');
    return { indexes: [...all.indexes], values: [...all.values] };
  });
  assert.deepEqual(indexes, indexes.map((_, i) => i));
  assert.deepEqual(values, [...Float32Array.from(ramp(0, 700))]);
  assert.equal(await tab.isHidden('#notice'), true);

  program.greeting = (viewer) => [hello({ now: 13 }), state({ now: 13 }), samples('ecg', 1000, 10, ramp(1000, 1100))].forEach(viewer.say);
  for (const viewer of program.viewers) viewer.leave();
  await until(tab, () => !document.querySelector('#notice').hidden);
  assert.match(await tab.textContent('#notice'), /300 samples did not reach this page.*raw ECG 300/s);
  await tab.close();
  await program.stop();
});

test('reports the samples that a slow viewer lost, and draws a gap', async () => {
  const program = await new FakeProgram().start();
  const { tab, trouble } = await fakeTab(program);
  const flat = (n) => Array.from({ length: n }, () => 0.5);
  program.say(
    state(),
    samples('respiration', 0, 9, flat(100)),
    { type: 'lost', messages: 3, samples: { ecg: 0, filteredEcg: 0, respiration: 150, motion: 0 } },
    samples('respiration', 250, 9.5, flat(100)),
  );
  await until(tab, () => !document.querySelector('#notice').hidden);
  assert.match(await tab.textContent('#notice'), /150 samples did not reach this page.*respiration 150/s);
  await until(tab, () => window.zephly.drawn('respiration').gaps.length === 1);
  assert.deepEqual(trouble, []);
  await tab.close();
  await program.stop();
});

test('ignores invalid messages', async () => {
  const program = await new FakeProgram().start();
  const { tab, trouble } = await fakeTab(program);
  program.say('{', { type: 'later' }, '7', new ArrayBuffer(3), samples('ecg', 0, 9, [1]).slice(0, 26), samples('ecg', 0, 9, [0.25]));
  await until(tab, () => window.zephly.samples('ecg').received === 1);
  assert.equal(await tab.evaluate(() => window.zephly.misunderstood()), 4);
  assert.equal(await tab.evaluate(() => window.zephly.phase()), 'live');
  assert.deepEqual(trouble.map((line) => line.slice(0, 32)), ['console: zephly: invalid message']);
  await tab.close();
  await program.stop();
});

test('shows an error for another protocol version, and does not retry', async () => {
  const program = await new FakeProgram().start();
  program.greeting = (viewer) => viewer.say(hello({ protocol: 2 }));
  const { tab } = await openTab(browser, program.address);
  await tab.goto(program.address);
  await until(tab, () => window.zephly.phase() === 'refused' && !document.querySelector('#program').hidden);
  assert.match(await tab.textContent('#program'), /version 2, .* version 1.*Reload/s);
  await tab.close();
  await program.stop();
});

test('shows no values before the first data', async () => {
  const program = await new FakeProgram().start();
  const { tab } = await fakeTab(program);
  program.say(state({ now: 0.5, ...NO_LINK, hostLine: 'Bluetooth: adapter hci0 is ready.' }));
  await until(tab, () => document.querySelector('#link-text').textContent === 'Searching');
  assert.equal(await tab.getAttribute('#link', 'data-state'), 'unknown');
  assert.match(await tab.textContent('#electrodes'), /Unknown.*no report yet/s);
  for (const id of ['skin', 'ambient', 'body', 'battery']) assert.equal(await tab.textContent(`#${id} .value`), '–', id);
  const reading = { object: 33, ambient: 22, body: null, bodyReadings: 1, t: 1 };
  program.say(state({ now: 1, temperature: reading }));
  await until(tab, () => document.querySelector('#skin .value').textContent === '33.0');
  assert.match(await tab.textContent('#body'), /–.*settling: 1 of 20 readings/s);
  program.say(state({ now: 1.5, temperature: { ...reading, object: null }, battery: { soc: null, inCharge: true } }));
  await until(tab, () => document.querySelector('#battery').textContent.includes('charging'));
  assert.equal(await tab.textContent('#skin .value'), '–');
  program.say(state({ now: 2, temperature: { ...reading, body: 36.8, bodyReadings: 20 } }));
  await until(tab, () => document.querySelector('#body .value').textContent === '36.8');
  assert.match(await tab.textContent('#body .detail'), /^estimate$/);
  await tab.close();
  await program.stop();
});

test('shows no body temperature before the estimate has settled', async () => {
  const program = new Program('--simulated', '--seed', '1', '--speed', '8', '--port', '0');
  const address = await program.address();
  const { tab } = await openTab(browser, address);
  await tab.addInitScript(() => {
    // Every value shown, with the number of readings at that time.
    window.shownBody = [];
    const look = () => {
      const value = document.querySelector('#body .value')?.textContent;
      const readings = window.zephly?.state()?.streams.temperature.received ?? 0;
      if (value !== undefined && value !== window.shownBody.at(-1)?.value) window.shownBody.push({ value, readings });
      requestAnimationFrame(look);
    };
    requestAnimationFrame(look);
  });
  await tab.goto(address);
  await until(tab, () => window.shownBody.length > 1);
  const shown = await tab.evaluate(() => window.shownBody);
  assert.equal(shown[0].value, '–');
  assert.match(shown[1].value, /^[34]\d\.\d$/);
  assert.ok(shown[1].readings >= 20, JSON.stringify(shown));
  await tab.close();
  await program.stop();
});

test('without Bluetooth the reason is the headline, with what to do', async () => {
  const program = await new FakeProgram().start();
  const { tab, trouble } = await fakeTab(program);
  const hostLine = 'Bluetooth: the service org.bluez is not there (bluetoothd is not running). Start it with: sudo systemctl enable --now bluetooth';
  program.say(state({ now: 0.5, ...NO_LINK, hostLine }));
  const none = await shown(tab, 'link', 'bad');
  assert.equal(await tab.textContent('#link-text'), 'Bluetooth: the service org.bluez is not there');
  assert.equal(await tab.textContent('#link-detail'), 'Start it with: sudo systemctl enable --now bluetooth (bluetoothd is not running)');
  assert.equal(none.icon, '#icon-bad');
  assert.match(none.announced, /org\.bluez is not there/);
  assert.match(none.title, /⚠ No Bluetooth/);

  // The largest text of the section, shown whole and as it is written, on a phone too.
  await tab.setViewportSize({ width: 360, height: 700 });
  const look = await tab.evaluate(() => {
    const size = (element) => parseFloat(getComputedStyle(element).fontSize);
    const [word, detail] = ['#link-text', '#link-detail'].map((id) => document.querySelector(id));
    const whole = [word, detail].every((one) => one.scrollWidth <= one.clientWidth && one.scrollHeight <= one.clientHeight);
    return { larger: size(word) > size(detail), whole, text: word.innerText };
  });
  assert.deepEqual(look, { larger: true, whole: true, text: 'Bluetooth: the service org.bluez is not there' });

  program.say(state({ now: 8, connected: false, disconnections: 1, linkChanged: 7, hostLine: 'Bluetooth: no adapter. Plug it in' }));
  await until(tab, () => /no adapter/.test(document.querySelector('#link-text').textContent));
  assert.match(await tab.textContent('#link-detail'), /^Link lost for \d s\. Plug it in$/);
  program.say(state({ now: 9, hostLine: 'Bluetooth: adapter hci0 is ready.' }));
  assert.match((await shown(tab, 'link', 'good')).text, /Connected/);
  assert.deepEqual(trouble, []);
  await tab.close();
  await program.stop();
});

test('the table shows what is missing, the gaps within a link and what this page lost', async () => {
  const program = await new FakeProgram().start();
  const { tab } = await fakeTab(program);
  const heads = await tab.evaluate(() => [...document.querySelectorAll('#rates')].flatMap((body) => [...body.parentElement.tHead.rows[0].cells].map((cell) => cell.textContent)));
  assert.deepEqual(heads, ['stream', 'per second', 'received', 'missing', 'longest gap within a link', 'lost by this page']);
  program.say(
    state({
      streams: {
        ecg: { received: 29226, perSecond: 500.2, longestGap: 0.012, missing: 1.548, missingPercent: 2.58 },
        temperature: { received: 60, perSecond: 1, longestGap: 1, missing: 0, missingPercent: 0 },
        battery: { received: 3, perSecond: null, longestGap: null, missing: null, missingPercent: null },
      },
    }),
    { type: 'lost', messages: 1, samples: { ecg: 7 } },
  );
  const rows = () => [...document.querySelector('#rates').rows].map((row) => [...row.cells].map((cell) => cell.textContent));
  // The count of this page comes with a message of its own.
  await until(tab, () => document.querySelector('#rates').textContent.includes('29,226') && document.querySelector('#rates').rows[0].cells[5].textContent !== '0');
  assert.deepEqual(await tab.evaluate(rows), [
    ['ECG', '500', '29,226', '1.5\u00a0s (2.6\u00a0%)', '12.0 ms', '7'],
    ['temperature', '1.00', '60', '0 s', '1.00 s', ''],
    ['battery', '–', '3', '–', '–', ''],
  ]);
  program.say(state({ streams: { ecg: { received: 1, perSecond: null, longestGap: 0.012, missing: 1.2, missingPercent: 0.0014 } } }));
  await until(tab, () => document.querySelector('#rates').textContent.includes('<0.1\u00a0%'));
  assert.deepEqual((await tab.evaluate(rows))[0].slice(1, 4), ['–', '1', '1.2\u00a0s (<0.1\u00a0%)']);
  await tab.close();
  await program.stop();
});

test('after the end both cards say that the session has ended, and how', async () => {
  const program = await new FakeProgram().start();
  const { tab } = await fakeTab(program);
  const cards = () => ['link', 'electrodes'].map((id) => ['text', 'detail'].map((part) => document.querySelector(`#${id}-${part}`).textContent).join(': '));
  const check = async (changes, ...expected) => {
    program.say(state({ ended: true, ...changes }));
    // The status is updated ten times a second.
    await until(tab, (now) => window.zephly.state()?.now === now && document.querySelector('#clock').textContent === `0:${now}`, changes.now);
    assert.deepEqual(await tab.evaluate(cards), expected);
  };
  await check({ now: 11 }, 'Session ended: The strap was connected.', 'Session ended: The electrodes were on the skin.');
  await check({ now: 12, electrodesOff: true, connected: false }, 'Session ended: The link was lost.', 'Session ended: The electrodes were off.');
  await check({ now: 13, ...NO_LINK }, 'Session ended: No strap was found.', 'Session ended: No report was received.');
  assert.equal(await tab.title(), 'Zephly');
  await tab.close();
  await program.stop();
});

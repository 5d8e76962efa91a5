// SPDX-License-Identifier: MIT
// Makes the documentation's screenshots with the real program: node screenshots.mjs FOLDER [all]
// "all" also makes those of faults and single states, for review.
import { mkdirSync, mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join, resolve } from 'node:path';
import { pathToFileURL } from 'node:url';
import { FakeProgram } from './fake_program.mjs';
import { hello, state } from './messages.mjs';
import { endEverything, endLater, openBrowser, openTab, Program, run, until } from './support.mjs';

const [wanted, everything] = process.argv.slice(2);
const folder = resolve(wanted);
mkdirSync(folder, { recursive: true });

const DARK = { colorScheme: 'dark', viewport: { width: 1440, height: 1080 } };
const LIGHT = { ...DARK, colorScheme: 'light' };
const PHONE = { colorScheme: 'dark', viewport: { width: 390, height: 844 }, deviceScaleFactor: 2, hasTouch: true, isMobile: true };

/** Takes a screenshot of the page at `address` when `ready` is true in it. `act` runs before. */
async function picture(name, context, address, ready, act = async () => {}) {
  const { tab, trouble } = await openTab(browser, new URL(address).origin, context);
  await tab.goto(address);
  if (ready) await until(tab, ready);
  await act(tab);
  await tab.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
  await tab.screenshot({ path: join(folder, `${name}.png`) });
  await tab.close();
  if (trouble.length > 0) console.error(`${name}: ${trouble.join('; ')}`);
}

/** At this time the page shows a push-up, sit-ups, a loss of electrode contact, and the rates again after it. */
const training = () => window.zephly.window().edge > 50.4;

const browser = await openBrowser();
const program = new Program('--simulated', '--seed', '1', '--port', '0');
const address = await program.address();
const pictures = Promise.all([picture('view-dark', DARK, address, training), picture('view-light', LIGHT, address, training), picture('view-phone', PHONE, address, training)]);

const recordings = mkdtempSync(join(tmpdir(), 'zephly-pictures-'));
endLater(() => rmSync(recordings, { recursive: true }));
// The report shows the name as it is given.
process.chdir(recordings);
await run('record', 'walk.zcap', '--simulated', '--seed', '1', '--duration', '10m', '--speed', '1000');
await run('report', 'walk.zcap', '--title', 'Walk');
const report = pathToFileURL(join(recordings, 'walk.html')).href;
await picture('report-light', LIGHT, report, null, async (tab) => {
  // Two minutes, around a moment.
  await tab.keyboard.press('ArrowLeft');
  await tab.keyboard.press('+');
  await tab.keyboard.press('+');
});
if (everything === 'all') {
  await picture('report-dark', DARK, report, null);
  await picture('report-phone', PHONE, report, null);
  await picture('state-electrodes-off', DARK, address, () => window.zephly.state()?.electrodesOff === true && window.zephly.window().edge > 41.4);
  await picture('state-paused', LIGHT, address, null, async (tab) => {
    await until(tab, () => window.zephly.window().edge > 45);
    await tab.keyboard.press('Space');
    await until(tab, () => document.querySelector('#behind').textContent.includes(' 2 s'));
  });
  await picture('state-help', DARK, address, () => window.zephly.phase() === 'live', (tab) => tab.keyboard.press('?'));
  const phoneLost = picture('phone-link-lost', { ...PHONE, colorScheme: 'light' }, address, () => window.zephly.state()?.connected === false && window.zephly.window().edge > 56.9);
  await picture('state-link-lost', DARK, address, () => window.zephly.state()?.connected === false && window.zephly.window().edge > 56.9);
  await phoneLost;
  await picture('state-after-loss', LIGHT, address, () => window.zephly.window().edge > 64, (tab) => tab.keyboard.press('-'));
  await picture('phone-bottom', PHONE, address, () => window.zephly.window().edge > 64, (tab) =>
    tab.evaluate(() => scrollTo(0, document.body.scrollHeight)));
  await picture('narrow-360', { ...PHONE, viewport: { width: 360, height: 2400 }, deviceScaleFactor: 1 }, address, () => window.zephly.window().edge > 64);
  await picture('laptop-1280', { ...DARK, viewport: { width: 1280, height: 720 } }, address, () => window.zephly.window().edge > 64);
  await picture('state-program-gone', DARK, address, () => window.zephly.window().edge > 66, async (tab) => {
    await program.stop();
    await until(tab, () => window.zephly.phase() === 'waiting');
    await until(tab, () => /in [34] s/.test(document.querySelector('#program-detail').textContent));
  });
  const silent = await new FakeProgram().start();
  silent.greeting = (viewer) => viewer.say(hello({ now: 0.1 }));
  await picture('state-before-data', LIGHT, silent.address, () => window.zephly.session() !== null);

  const problem = await new FakeProgram().start();
  const none = { now: 4, connected: false, connections: 0, linkChanged: null, electrodesOff: null };
  const hostLine =
    'Bluetooth: the service org.bluez is not there (bluetoothd is not running). To have it: sudo apt install bluez; sudo systemctl enable --now bluetooth';
  problem.greeting = (viewer) => [hello({ now: 4 }), state({ ...none, hostLine })].forEach(viewer.say);
  const headline = () => document.querySelector('#link').dataset.state === 'bad';
  await picture('state-no-bluetooth', DARK, problem.address, headline);
  await picture('phone-no-bluetooth', { ...PHONE, colorScheme: 'light' }, problem.address, headline);

  const session = new Program('--simulated', '--seed', '1', '--speed', '10', '--duration', '25', '--port', '0');
  const ended = () => document.querySelector('#link-text').textContent === 'Session ended';
  const last = await session.address();
  await picture('state-ended', LIGHT, last, ended);
  await picture('phone-ended', PHONE, last, ended);
}
await pictures;
await endEverything();

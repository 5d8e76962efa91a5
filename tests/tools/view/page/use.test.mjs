// SPDX-License-Identifier: MIT
// Use of the page: keys, wheel, focus, themes, small screens.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { FakeProgram } from './fake_program.mjs';
import { beat, hello, samples, second, state, vitals } from './messages.mjs';
import { endEverything, openBrowser, openTab, Program, until } from './support.mjs';

let browser;
let address;
before(async () => {
  browser = await openBrowser();
  const program = new Program('--simulated', '--seed', '2', '--port', '0');
  address = await program.address();
});
after(endEverything);

async function withTab(context, use, url = address) {
  const { tab, trouble } = await openTab(browser, new URL(url).origin, context);
  await tab.goto(url);
  await until(tab, () => window.zephly.phase() === 'live');
  await use(tab);
  assert.deepEqual(trouble, []);
  await tab.close();
}

const seconds = (tab) => tab.evaluate(() => window.zephly.window().seconds);
const range = (tab, stream) => tab.evaluate((name) => window.zephly.drawn(name), stream);

test('the keyboard operates everything', () =>
  withTab({}, async (tab) => {
    await until(tab, () => window.zephly.window().edge > 3);
    const press = (key) => tab.keyboard.press(key);

    await press('Space');
    await until(tab, () => window.zephly.window().paused);
    const held = await tab.evaluate(() => window.zephly.window().edge);
    const [drawn, got] = await tab.evaluate(() => [window.zephly.drawn('ecg').times.at(-1), window.zephly.samples('ecg').received]);
    await until(tab, (before) => window.zephly.samples('ecg').received > before + 250, got);
    assert.equal(await tab.evaluate(() => window.zephly.window().edge), held);
    assert.equal(await tab.evaluate(() => window.zephly.drawn('ecg').times.at(-1)), drawn);
    assert.match(await tab.textContent('#behind'), /Paused/);
    assert.equal(await tab.getAttribute('#pause', 'aria-pressed'), 'true');

    assert.equal(await seconds(tab), 10);
    await press('+');
    assert.equal(await seconds(tab), 5);
    await press('+');
    await press('+');
    assert.equal(await seconds(tab), 2);
    await press('ArrowLeft');
    await until(tab, (edge) => window.zephly.window().edge < edge, held);
    await press('ArrowRight');
    await until(tab, (edge) => window.zephly.window().edge >= edge, held);
    for (const expected of [5, 10, 30, 30]) {
      await press('-');
      assert.equal(await seconds(tab), expected);
    }
    await press('Space');
    await until(tab, (edge) => !window.zephly.window().paused && window.zephly.window().edge > edge, held);

    await press('2');
    assert.equal(await tab.evaluate(() => document.activeElement.dataset.stream), 'filteredEcg');
    const full = await range(tab, 'filteredEcg');
    await press('ArrowUp');
    const more = await range(tab, 'filteredEcg');
    assert.ok(more.high - more.low < full.high - full.low);
    await press('ArrowDown');
    const back = await range(tab, 'filteredEcg');
    assert.ok(Math.abs(back.high - full.high) < 1e-9 && Math.abs(back.low - full.low) < 1e-9);
    await press('a');
    assert.equal(await tab.getAttribute('[data-stream=filteredEcg] [title="automatic gain"]', 'aria-pressed'), 'true');
    await press('1');
    await press('0');
    const raw = await range(tab, 'ecg');
    assert.deepEqual([raw.low, raw.high].map((x) => x.toFixed(2)), ['-2.42', '2.42']);

    await press('?');
    assert.equal(await tab.isVisible('#help-box'), true);
    assert.match(await tab.textContent('#about'), /2026 the Zephly authors, MIT license/);
    await press('+');
    assert.equal(await seconds(tab), 30);
    await press('Escape');
    assert.equal(await tab.isVisible('#help-box'), false);
    await press('?');
    await press('?');
    assert.equal(await tab.isVisible('#help-box'), false);
  }));

test('Tab reaches every control in order, with a visible focus', () =>
  withTab({}, async (tab) => {
    await tab.keyboard.press('?');
    await tab.keyboard.press('Escape');
    await tab.evaluate(() => document.activeElement.blur());
    const visible = await tab.evaluate(() => [...document.querySelectorAll('button, [tabindex]')].filter((one) => one.checkVisibility()).length);
    const seen = [];
    for (let i = 0; i < visible; ++i) {
      await tab.keyboard.press('Tab');
      seen.push(
        await tab.evaluate(() => {
          const { activeElement } = document;
          const { outlineStyle, outlineWidth } = getComputedStyle(activeElement);
          const all = [...document.querySelectorAll('button, [tabindex]')].filter((one) => one.checkVisibility());
          return { place: all.indexOf(activeElement), ring: outlineStyle !== 'none' && parseFloat(outlineWidth) >= 2, name: activeElement.ariaLabel ?? activeElement.textContent };
        }),
      );
    }
    assert.deepEqual(seen.map(({ place }) => place), seen.map((_, i) => i));
    for (const { ring, name } of seen) {
      assert.ok(ring, `no ring around ${name}`);
      assert.ok(name.trim().length > 0, 'a control without a name');
    }
    assert.ok(visible >= 20, `${visible} controls`);
  }));

test('the wheel zooms a chart within its limits', () =>
  withTab({}, async (tab) => {
    await tab.hover('[data-stream=respiration] .room');
    await tab.mouse.wheel(0, 300);
    await until(tab, () => window.zephly.window().seconds > 12);
    await tab.mouse.wheel(0, 100000);
    await until(tab, () => window.zephly.window().seconds === 30);
    await tab.mouse.wheel(0, -100000);
    await until(tab, () => window.zephly.window().seconds === 1);
    await until(tab, () => /\d s: /.test(document.querySelector('[data-stream=respiration] .readout').textContent));
  }));

test('the theme follows the system or the choice of the user, which is stored', () =>
  withTab({ colorScheme: 'light' }, async (tab) => {
    const theme = () => tab.evaluate(() => document.documentElement.dataset.theme);
    assert.equal(await theme(), 'light');
    await tab.emulateMedia({ colorScheme: 'dark' });
    await until(tab, () => document.documentElement.dataset.theme === 'dark');
    await tab.keyboard.press('t');
    await tab.keyboard.press('t');
    assert.equal(await tab.textContent('#theme-text'), 'light');
    assert.equal(await theme(), 'light');
    await tab.reload();
    await until(tab, () => window.zephly?.phase() === 'live');
    assert.equal(await theme(), 'light');
    await tab.keyboard.press('t');
    assert.equal(await tab.textContent('#theme-text'), 'auto');
    assert.equal(await theme(), 'dark');
  }));

for (const width of [360, 390, 768, 1024, 1280]) {
  test(`no horizontal scrolling at ${width} pixels`, () =>
    withTab({ viewport: { width, height: 800 }, ...(width < 700 ? { isMobile: true, hasTouch: true } : {}) }, async (tab) => {
      await until(tab, () => window.zephly.state()?.temperature != null);
      const wide = await tab.evaluate(() => ({ page: document.documentElement.scrollWidth, room: innerWidth }));
      assert.ok(wide.page <= width && wide.room === width, JSON.stringify(wide));
      const cut = await tab.evaluate(() =>
        [...document.querySelectorAll('.value, .word, button, .chart h2, .trend h2, .trend .legend span')]
          .filter((one) => one.checkVisibility() && (one.scrollWidth > one.clientWidth + 1 || one.getBoundingClientRect().right > innerWidth))
          .filter((one) => getComputedStyle(one).display !== 'inline')
          .map((one) => one.textContent),
      );
      assert.deepEqual(cut, []);
      if (width >= 700) return;
      const small = await tab.evaluate(() =>
        [...document.querySelectorAll('button')]
          .filter((one) => one.checkVisibility())
          .map((one) => ({ name: one.ariaLabel ?? one.textContent, box: one.getBoundingClientRect() }))
          .filter(({ box }) => box.width < 44 || box.height < 44)
          .map(({ name }) => name),
      );
      assert.deepEqual(small, []);
    }));
}

for (const width of [360, 1000, 1440]) {
  test(`the time axes of charts in a column are aligned at ${width} pixels`, () =>
    withTab({ viewport: { width, height: 900 } }, async (tab) => {
      await until(tab, () => document.querySelectorAll('.chart .u-over').length === 4);
      const axes = await tab.evaluate(() =>
        Object.fromEntries(
          [...document.querySelectorAll('.chart')].map((chart) => {
            const { left, right } = chart.querySelector('.u-over').getBoundingClientRect();
            return [chart.dataset.stream, { left, right }];
          }),
        ),
      );
      const { ecg, filteredEcg, respiration, motion } = axes;
      const near = (one, other) => assert.ok(Math.abs(one - other) < 1, JSON.stringify(axes));
      near(motion.left, respiration.left);
      near(motion.right, respiration.right);
      near(ecg.left, respiration.left);
      near(filteredEcg.right, respiration.right);
      near(ecg.right - ecg.left, filteredEcg.right - filteredEcg.left);
      if (width === 360) near(ecg.right, respiration.right);
    }));
}

test('the text of a fault is not truncated on the smallest screen', async () => {
  const fake = await new FakeProgram().start();
  await withTab({ viewport: { width: 360, height: 700 }, isMobile: true, hasTouch: true }, async (tab) => {
    const whole = async (id, changes) => {
      fake.say(state(changes));
      await until(tab, (tile) => document.querySelector(`#${tile}`).dataset.state === 'bad', id);
      const cut = await tab.evaluate(() =>
        [...document.querySelectorAll('.state .word')]
          .filter((word) => {
            const tile = word.closest('.state');
            const text = document.createRange();
            text.selectNodeContents(word);
            return word.scrollWidth > word.clientWidth || text.getBoundingClientRect().right > tile.getBoundingClientRect().right - 2 || tile.scrollHeight > tile.clientHeight;
          })
          .map((word) => word.textContent),
      );
      assert.deepEqual(cut, []);
    };
    await whole('electrodes', { electrodesOff: true });
    await whole('link', { connected: false, disconnections: 1, linkChanged: 9, electrodesOff: true });
  }, fake.address);
});

test('a pause keeps its samples for any length of time', async () => {
  const fake = await new FakeProgram().start();
  await withTab({}, async (tab) => {
    const ramp = (from, to) => Array.from({ length: to - from }, (_, i) => Math.sin((from + i) / 50));
    fake.say(state({ now: 10 }), samples('ecg', 0, 0, ramp(0, 5000)));
    await until(tab, () => window.zephly.drawn('ecg').times.length > 1000);
    await tab.keyboard.press('Space');
    await until(tab, () => window.zephly.window().paused);
    const look = () => tab.evaluate(() => [...window.zephly.drawn('ecg').values]);
    await tab.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
    const before = await look();
    for (let index = 5000; index < 25000; index += 4000) fake.say(samples('ecg', index, index / 500, ramp(index, index + 4000)));
    fake.say(state({ now: 50 }));
    await until(tab, () => window.zephly.samples('ecg').received === 25000 && window.zephly.state().now === 50);
    await tab.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
    assert.deepEqual(await look(), before);
    await tab.keyboard.press('Space');
    await until(tab, () => window.zephly.window().edge > 45);
  }, fake.address);
});

test('nothing is animated with reduced motion', () =>
  withTab({ reducedMotion: 'reduce' }, async (tab) => {
    const beats = () => {
      document.querySelector('#link').dataset.state = 'bad';
      return getComputedStyle(document.querySelector('#link .icon')).animationName;
    };
    assert.equal(await tab.evaluate(beats), 'none');
    await tab.emulateMedia({ reducedMotion: 'no-preference' });
    await until(tab, () => {
      document.querySelector('#link').dataset.state = 'bad';
      return getComputedStyle(document.querySelector('#link .icon')).animationName === 'beat';
    });
  }));

/** Runs in the page: texts and traces whose contrast (WCAG 2.1) to their background is below 4.5. */
function faint() {
  const canvas = new OffscreenCanvas(1, 1).getContext('2d', { willReadFrequently: true });
  const rgba = (css) => {
    canvas.clearRect(0, 0, 1, 1);
    canvas.fillStyle = css;
    canvas.fillRect(0, 0, 1, 1);
    return canvas.getImageData(0, 0, 1, 1).data;
  };
  const light = (css) => {
    const [r, g, b] = [...rgba(css).slice(0, 3)].map((c) => (c / 255 <= 0.04045 ? c / 255 / 12.92 : ((c / 255 + 0.055) / 1.055) ** 2.4));
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
  };
  const contrast = (one, other) => {
    const [high, low] = [light(one), light(other)].sort((a, b) => b - a);
    return (high + 0.05) / (low + 0.05);
  };
  const behind = (element) => {
    for (let one = element; one !== null; one = one.parentElement) {
      const { backgroundColor } = getComputedStyle(one);
      if (rgba(backgroundColor)[3] === 255) return backgroundColor;
    }
    return getComputedStyle(document.documentElement).backgroundColor;
  };
  const found = [];
  let looked = 0;
  for (const element of document.body.querySelectorAll('*')) {
    const text = [...element.childNodes].filter((node) => node.nodeType === Node.TEXT_NODE && node.textContent.trim() !== '');
    if (text.length === 0 || !element.checkVisibility({ opacityProperty: true })) continue;
    ++looked;
    const ratio = contrast(getComputedStyle(element).color, behind(element));
    if (ratio < 4.5) found.push(`${element.textContent.trim().slice(0, 30)}: ${ratio.toFixed(2)}`);
  }
  const variable = (name) => getComputedStyle(document.documentElement).getPropertyValue(`--${name}`);
  for (const name of ['ecg', 'filteredEcg', 'respiration', 'displacement', 'velocity', 'text', 'muted']) {
    const ratio = contrast(variable(name), variable('chart'));
    if (ratio < 4.5) found.push(`--${name} on the chart: ${ratio.toFixed(2)}`);
  }
  for (const name of ['hatch', 'focus', 'good', 'bad']) {
    const ratio = contrast(variable(name), variable('panel'));
    if (ratio < 3) found.push(`--${name} as a shape: ${ratio.toFixed(2)}`);
  }
  return { found, looked };
}

test('texts and traces have sufficient contrast in both themes, in normal and in fault states', async () => {
  const fake = await new FakeProgram().start();
  fake.greeting = (viewer) => {
    viewer.say(hello());
    viewer.say(state({ vitals: second(), battery: { soc: 9, inCharge: false }, temperature: { object: 33, ambient: 22, body: 36.8, t: 9 } }));
    viewer.say(samples('ecg', 0, 9, [0, 1]));
    viewer.say(samples('ecg', 9, 9.1, [0, 1]));
    viewer.say({ type: 'event', t: 9.5, event: 'jump' });
    viewer.say(vitals({ beats: [beat(9.05), beat(9.6, { class: 'ectopic' })], seconds: [second()] }));
  };
  for (const colorScheme of ['dark', 'light']) {
    await withTab({ colorScheme }, async (tab) => {
      const check = async (what) => {
        const { found, looked } = await tab.evaluate(faint);
        assert.deepEqual(found, [], `${colorScheme}, ${what}`);
        assert.ok(looked > 60, `${looked} texts`);
      };
      await until(tab, () => !document.querySelector('#notice').hidden && document.querySelector('#link').dataset.state === 'good');
      await check('good');
      await tab.keyboard.press('Space');
      await until(tab, () => document.querySelector('#behind').textContent !== '');
      await check('paused');
      fake.say(state({ connected: false, linkChanged: 9.9, disconnections: 1, electrodesOff: true }));
      await until(tab, () => document.querySelector('#link').dataset.state === 'bad');
      await check('link lost');
      fake.say(state({ electrodesOff: true, linkChanged: 10 }));
      await until(tab, () => document.querySelector('#electrodes').dataset.state === 'bad');
      await check('electrodes off');
      await tab.keyboard.press('?');
      await check('help');
      await tab.keyboard.press('Escape');
      fake.say(state({ ended: true }));
      await until(tab, () => !document.querySelector('#program').hidden);
      await check('ended');
    }, fake.address);
  }
});

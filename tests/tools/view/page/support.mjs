// SPDX-License-Identifier: MIT
// Shared by the tests of the page: a browser, the program under test, and functions that wait.
//
// From the environment: ZEPHLY_PROGRAM, ZEPHLY_PAGE_DIR (where the page was built: node_modules and dist),
// ZEPHLY_CHROMIUM.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { createRequire } from 'node:module';
import { join } from 'node:path';

export const program = process.env.ZEPHLY_PROGRAM;
export const pageFolder = process.env.ZEPHLY_PAGE_DIR;
const require = createRequire(join(pageFolder, 'package.json'));
export const { chromium } = require('playwright-core');
export const { WebSocketServer } = require('ws');

/** A time limit in milliseconds, only to end tests that would hang. */
export const PATIENCE = 60_000;

const FLAGS = ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
  '--disable-component-update', '--disable-sync', '--js-flags=--expose-gc'];

/** Clean-up functions that run after the tests of a file, whether they passed or failed. */
const leftovers = new Set();
export async function endEverything() {
  for (const end of [...leftovers].reverse()) await end();
  leftovers.clear();
}
export function endLater(end) {
  leftovers.add(end);
}

/** A browser with a temporary profile. */
export async function openBrowser() {
  const browser = await chromium.launch({ executablePath: process.env.ZEPHLY_CHROMIUM, headless: true, args: FLAGS });
  endLater(() => browser.close());
  return browser;
}

/**
 * A new tab that is isolated from other tabs; `context` are options of Playwright's contexts. Errors are
 * collected in `trouble`: console errors, exceptions, violations of the content security policy, and
 * requests to other origins than `origin`.
 */
export async function openTab(browser, origin, context = {}) {
  const tab = await browser.newPage({ viewport: { width: 1440, height: 900 }, ...context });
  const trouble = [];
  tab.on('console', (message) => {
    if (['error', 'warning'].includes(message.type())) trouble.push(`console: ${message.text()}`);
  });
  tab.on('pageerror', (error) => trouble.push(`exception: ${error}`));
  tab.on('request', (request) => {
    const url = new URL(request.url());
    if (url.origin !== origin && !['data:', 'blob:'].includes(url.protocol)) trouble.push(`request to ${url.origin}`);
  });
  tab.on('websocket', (socket) => {
    const url = new URL(socket.url());
    if (url.host !== new URL(origin).host) trouble.push(`WebSocket to ${url.host}`);
  });
  await tab.addInitScript(() => {
    addEventListener('securitypolicyviolation', (event) => console.error(`content security policy: ${event.violatedDirective}`));
  });
  return { tab, trouble };
}

/** The program as a process: `zephly view` with these arguments, and the address that it printed. */
export class Program {
  constructor(...options) {
    this.output = '';
    this.child = spawn(program, ['view', ...options], { stdio: ['ignore', 'pipe', 'pipe'] });
    this.ended = once(this.child, 'exit');
    for (const stream of [this.child.stdout, this.child.stderr]) {
      stream.on('data', (text) => {
        this.output += text;
        this.onOutput?.();
      });
    }
    this.child.on('exit', () => this.onOutput?.());
    endLater(() => this.stop('SIGKILL'));
  }

  /** "http://127.0.0.1:PORT" */
  async address() {
    for (;;) {
      const found = /http:\/\/(127\.0\.0\.1|localhost):(\d+)/.exec(this.output);
      if (found) return found[0];
      if (this.child.exitCode !== null) throw new Error(`zephly view has ended: ${this.output}`);
      await new Promise((resolve) => (this.onOutput = resolve));
    }
  }

  async stop(signal = 'SIGTERM') {
    if (this.child.exitCode === null && this.child.signalCode === null) this.child.kill(signal);
    await this.ended;
    return this.child.exitCode;
  }
}

/** Runs `zephly` to its end and returns its standard output. */
export async function run(...options) {
  const child = spawn(program, options, { stdio: ['ignore', 'pipe', 'inherit'] });
  const pieces = [];
  child.stdout.on('data', (piece) => pieces.push(piece));
  await once(child, 'close');
  return Buffer.concat(pieces).toString('utf8');
}

/** Waits until `condition` (a function that runs in the page) is true. */
export function until(tab, condition, argument, options = {}) {
  return tab.waitForFunction(condition, argument, { timeout: PATIENCE, polling: 'raf', ...options });
}

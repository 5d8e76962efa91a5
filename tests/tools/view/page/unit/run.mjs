// SPDX-License-Identifier: MIT
// Runs the tests of the page's parts that need no browser: bundles them, as Node.js does not read TypeScript.
import { spawnSync } from 'node:child_process';
import { mkdtempSync, readdirSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const here = dirname(fileURLToPath(import.meta.url));
const { buildSync } = createRequire(join(process.env.ZEPHLY_PAGE_DIR, 'package.json'))('esbuild');
const tests = readdirSync(here).filter((name) => name.endsWith('.test.ts'));
const folder = mkdtempSync(join(tmpdir(), 'zephly-page-tests-'));
try {
  buildSync({
    entryPoints: tests.map((name) => join(here, name)),
    outdir: folder,
    bundle: true,
    platform: 'node',
    format: 'esm',
    outExtension: { '.js': '.mjs' },
    sourcemap: 'inline',
  });
  const files = tests.map((name) => join(folder, name.replace('.ts', '.mjs')));
  process.exitCode = spawnSync(process.execPath, ['--enable-source-maps', '--test', ...files], { stdio: 'inherit' }).status ?? 1;
} finally {
  rmSync(folder, { recursive: true });
}

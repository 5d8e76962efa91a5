// SPDX-License-Identifier: MIT
// Writes the built pages as C++: node embed.mjs DIST REPORT OUTPUT. DIST has the files of the page of `zephly view`,
// REPORT the script and the style of that of `zephly report`, whose document is report.html. The result provides
// assets() and reportPage() of tools/view/assets.h.
import { createHash } from 'node:crypto';
import { readdirSync, readFileSync, writeFileSync } from 'node:fs';
import { extname, join } from 'node:path';

const CONTENT_TYPES = {
  '.html': 'text/html; charset=utf-8',
  '.js': 'text/javascript; charset=utf-8',
  '.css': 'text/css; charset=utf-8',
  '.svg': 'image/svg+xml',
};

function files(folder, prefix = '') {
  return readdirSync(join(folder, prefix), { withFileTypes: true }).flatMap((entry) => {
    const path = join(prefix, entry.name);
    return entry.isDirectory() ? files(folder, path) : [path];
  });
}

/** An array of bytes in C++; returns its name. */
function body(bytes) {
  const name = `body${bodies.length}`;
  const rows = [];
  for (let i = 0; i < bytes.length; i += 32) rows.push(`    ${[...bytes.subarray(i, i + 32)].join(',')}`);
  bodies.push(`constexpr unsigned char ${name}[] = {\n${rows.join(',\n')}};\n`);
  return name;
}

/** The text of a file that is put between <NAME> and </NAME>. */
function inline(path, name) {
  const text = readFileSync(path, 'utf8');
  if (text.toLowerCase().includes(`</${name}`)) throw new Error(`${path} has </${name}> in it`);
  return text;
}

/**
 * The document of the report with script and style in it, cut where the data go. Its policy allows this script and
 * this style, by their hashes, and nothing else: no data can become a script, and nothing is requested.
 */
function reportParts(folder) {
  const script = inline(join(folder, 'report.js'), 'script');
  const style = inline(join(folder, 'report.css'), 'style');
  const source = (text) => `'sha256-${createHash('sha256').update(text).digest('base64')}'`;
  const policy = `default-src 'none'; script-src ${source(script)}; style-src ${source(style)}; base-uri 'none'; form-action 'none'`;
  const parts = { POLICY: policy, STYLE: style, SCRIPT: script };
  const whole = readFileSync('report.html', 'utf8').replace(/@(POLICY|STYLE|SCRIPT)@/g, (_all, name) => parts[name]);
  const cut = whole.split('@DATA@');
  if (cut.length !== 2) throw new Error('report.html has no single place for the data');
  return cut.map((text) => body(Buffer.from(text, 'utf8')));
}

const [dist, report, output] = process.argv.slice(2);
const bodies = [];
const entries = [];
for (const path of files(dist).sort()) {
  const contentType = CONTENT_TYPES[extname(path)];
  if (contentType === undefined) throw new Error(`embed.mjs does not know the type of ${path}`);
  const name = body(readFileSync(join(dist, path)));
  // Vite puts a hash of the content into the names of everything in assets/.
  const immutable = path.startsWith('assets/');
  const address = path === 'index.html' ? '/' : `/${path}`;
  entries.push(`    Asset{"${address}", "${contentType}", text(${name}), ${immutable}},\n`);
}

const [before, after] = reportParts(report);

writeFileSync(
  output,
  `// Written by tools/view/page/embed.mjs from the built pages.

#include <tools/view/assets.h>

#include <array>

namespace Zephly::view {

namespace {

template <std::size_t size>
std::string_view text(const unsigned char (&bytes)[size]) {
  return {reinterpret_cast<const char*>(bytes), size};
}

${bodies.join('\n')}
}  // namespace

std::span<const Asset> assets() {
  static const std::array<Asset, ${entries.length}> all = {
${entries.join('')}  };
  return all;
}

ReportPage reportPage() { return {text(${before}), text(${after})}; }

}  // namespace Zephly::view
`,
);

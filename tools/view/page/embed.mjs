// SPDX-License-Identifier: MIT
// Writes the built page as C++: node embed.mjs DIST OUTPUT. The result provides assets() of tools/view/assets.h.
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

const [dist, output] = process.argv.slice(2);
const bodies = [];
const entries = [];
for (const path of files(dist).sort()) {
  const contentType = CONTENT_TYPES[extname(path)];
  if (contentType === undefined) throw new Error(`embed.mjs does not know the type of ${path}`);
  const bytes = readFileSync(join(dist, path));
  const name = `body${bodies.length}`;
  const rows = [];
  for (let i = 0; i < bytes.length; i += 32) rows.push(`    ${[...bytes.subarray(i, i + 32)].join(',')}`);
  bodies.push(`constexpr unsigned char ${name}[] = {\n${rows.join(',\n')}};\n`);
  // Vite puts a hash of the content into the names of everything in assets/.
  const immutable = path.startsWith('assets/');
  const address = path === 'index.html' ? '/' : `/${path}`;
  entries.push(`    Asset{"${address}", "${contentType}", text(${name}), ${immutable}},\n`);
}

writeFileSync(
  output,
  `// Written by tools/view/page/embed.mjs from the built page.

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

}  // namespace Zephly::view
`,
);

// SPDX-License-Identifier: MIT
// The script and the style of the page of `zephly report`, one file each: embed.mjs writes them into the document,
// because a report is one file.
import { defineConfig } from 'vite';

export default defineConfig({
  build: {
    target: 'es2022',
    outDir: 'dist-report',
    emptyOutDir: true,
    modulePreload: { polyfill: false },
    // Otherwise the script would write the style into the document, which the policy forbids.
    cssCodeSplit: false,
    reportCompressedSize: false,
    rollupOptions: {
      input: 'src/report/main.ts',
      output: { format: 'iife', entryFileNames: 'report.js', assetFileNames: 'report[extname]' },
    },
  },
});

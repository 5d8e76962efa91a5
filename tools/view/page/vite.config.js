// SPDX-License-Identifier: MIT
// How the page is put together. Everything comes out as files of its own: the program forbids scripts and
// styles that are written into the page, and whatever comes from elsewhere.
import { defineConfig } from 'vite';

export default defineConfig({
  base: '/',
  build: {
    target: 'es2022',
    outDir: 'dist',
    emptyOutDir: true,
    assetsInlineLimit: 0,
    modulePreload: { polyfill: false },
    reportCompressedSize: false,
  },
});

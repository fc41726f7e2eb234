import { defineConfig } from 'vite';

// Served over tovin://app inside Qt WebEngine: one origin, no network, no fetch() of our own
// files. Everything the app needs is bundled; relative asset URLs keep it working from any root.
export default defineConfig({
  base: './',
  esbuild: { jsx: 'automatic', jsxImportSource: 'preact' },
  build: {
    target: 'es2020',
    outDir: 'dist',
    emptyOutDir: true,
    assetsInlineLimit: 0,
    modulePreload: false,
    reportCompressedSize: false,
  },
  test: {
    environment: 'node',
    include: ['tests/**/*.test.ts'],
  },
});

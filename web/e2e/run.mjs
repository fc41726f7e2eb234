// End to end against the built app in Debian's Chromium (driven by playwright-core; no browser
// download), with a stand-in TOVIN_NATIVE that records every call the page makes. Inside Tovin
// itself (tests/e2e/app_e2e.sh) these pages are already worked to their end; what is checked
// here needs a browser's hand: a fake clock, the calls as made, the forms, accessibility.
//
//   node e2e/run.mjs [screenshot folder]
//
// Prints one line per check and a closing "N passed, N failed"; exits non-zero on a failure.

import { readFile, mkdir } from 'node:fs/promises';
import { gzipSync } from 'node:zlib';
import { join, dirname } from 'node:path';
import { fileURLToPath } from 'node:url';
import { createRequire } from 'node:module';
import { chromium } from 'playwright-core';

const here = dirname(fileURLToPath(import.meta.url));
const dist = join(here, '..', 'dist');
const shots = process.argv[2] ?? join(here, '..', 'screenshots');
const axePath = createRequire(import.meta.url).resolve('axe-core/axe.min.js');
await mkdir(shots, { recursive: true });

const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
  args: ['--no-sandbox', '--disable-gpu', '--disable-background-networking', '--disable-component-update', '--no-first-run'],
});

// The built folder, answered from disk for every request under base: no server to run.
const base = 'http://tovin.test/';
function serve(route) {
  const file = join(dist, new URL(route.request().url()).pathname.slice(1) || 'index.html');
  return route.fulfill({ path: file }).catch(() => route.fulfill({ status: 404 }));
}

let passed = 0;
let failed = 0;
async function check(name, body) {
  const context = await browser.newContext({ viewport: { width: 1280, height: 900 }, reducedMotion: 'reduce' });
  await context.route(`${base}**`, serve);
  const page = await context.newPage();
  const errors = [];
  page.on('pageerror', (e) => errors.push(String(e)));
  try {
    await body(page);
    assert(errors.length === 0, `page errors: ${errors.join('; ')}`);
    passed++;
    console.log(`ok   ${name}`);
  } catch (e) {
    failed++;
    console.log(`FAIL ${name}\n     ${e.stack ?? e}`);
  } finally {
    await context.close();
  }
}

function assert(condition, message) {
  if (!condition) throw new Error(message);
}

// The stand-in bridge: the shell's data, and its functions, each recording the call as
// [name, ...arguments].
async function bridge(page, native) {
  await page.addInitScript((n) => {
    window.__calls = [];
    for (const f of ['complete', 'promisesSynced', 'setBusy', 'clearBusy', 'saveSchedule', 'setWorkoutPlan', 'saveSettings'])
      n[f] = (...args) => window.__calls.push([f, ...args]);
    window.TOVIN_NATIVE = n;
  }, native);
}
const calls = (page) => page.evaluate(() => window.__calls);
const named = (list, f) => list.filter((c) => c[0] === f);
const same = (actual, expected) =>
  assert(JSON.stringify(actual) === JSON.stringify(expected), `${JSON.stringify(actual)}, wanted ${JSON.stringify(expected)}`);

const week = [{ at: '13:00', label: 'The Classic 7', kind: 'workout', days: [2, 3, 4, 5, 6] }];
const native = (mode, extra = {}) => ({ mode, lockoutWorkoutId: 'two-minute-spark', blocks: week, onboarded: true, ...extra });

// Under the fake clock, effects (such as moving the focus to the step's button) run on timers:
// let them run before pressing a key.
async function press(page, key) {
  await page.clock.runFor(100);
  await page.keyboard.press(key);
}

async function audit(page, name) {
  await page.addScriptTag({ path: axePath });
  const result = await page.evaluate(async () => {
    const r = await window.axe.run(document, { resultTypes: ['violations'] });
    return r.violations.filter((v) => v.impact === 'serious' || v.impact === 'critical').map((v) => `${v.id}: ${v.help}`);
  });
  assert(result.length === 0, `${name}: accessibility violations: ${result.join(' | ')}`);
}

await check('a page prepared behind the countdown starts nothing; shown, a run by keyboard reports once', async (page) => {
  await page.clock.install();
  await bridge(page, native('locked', { blockLabel: 'Lunch break', shown: false }));
  await page.goto(base);
  await page.getByText('Lunch break · Two-Minute Spark').waitFor();
  await page.clock.runFor(45_000); // a countdown's worth
  same(await calls(page), []); // no busy mark for a lockout the person may yet snooze
  await page.evaluate(() => {
    window.TOVIN_NATIVE.shown = true;
    window.dispatchEvent(new CustomEvent('tovin-shown'));
  });
  await audit(page, 'locked');
  await page.screenshot({ path: join(shots, 'web-locked.png') });
  await page.clock.runFor(31_000); // 30 s of jacks
  await page.getByRole('heading', { name: 'Rest' }).waitFor();
  await press(page, 'Space'); // skip the rest
  await page.getByRole('heading', { name: 'Squat' }).waitFor();
  await press(page, 'Enter'); // Done: 12 squats
  await page.clock.runFor(6_000);
  await page.getByRole('heading', { name: 'Desk push-up' }).waitFor();
  await press(page, 'Space'); // Done: 10 desk push-ups
  await page.clock.runFor(6_000);
  await page.getByRole('heading', { name: 'High knees' }).waitFor();
  await page.clock.runFor(21_000);
  await page.getByRole('heading', { name: 'Promise kept.' }).waitFor();
  const list = await calls(page);
  same(named(list, 'complete'), [['complete', 'Two-Minute Spark', 22]]);
  // Busy once shown and again a minute in (the run lasts about 64 s), cleared at the end.
  same(list.map((c) => c[0]), ['setBusy', 'setBusy', 'complete', 'clearBusy']);
  await page.evaluate(() => window.dispatchEvent(new CustomEvent('tovin-standing', { detail: { streak: 4, tovin: 9, broken: 1, attested: 1, best: 6 } })));
  await page.getByText('in a row').waitFor();
  await page.clock.runFor(120_000);
  same(await calls(page), list); // nothing re-asserts busy once done
  await page.screenshot({ path: join(shots, 'web-done.png') });
});

await check('an unknown workout falls back to The Classic 7 and says so; the bundle stays small', async (page) => {
  await bridge(page, native('locked', { lockoutWorkoutId: 'no-such-thing' }));
  await page.goto(base);
  await page.getByRole('heading', { name: 'Jumping jacks' }).waitFor();
  assert(await page.getByText(/wasn't found/).isVisible(), 'fallback explained');
  const index = await readFile(join(dist, 'index.html'), 'utf8');
  const assets = [...index.matchAll(/(?:src|href)="\.?\/?(assets\/[^"]+\.(?:js|css))"/g)].map((m) => m[1]);
  let gzipped = 0;
  for (const a of assets) gzipped += gzipSync(await readFile(join(dist, a)), { level: 9 }).length;
  console.log(`     figures: JS+CSS ${(gzipped / 1024).toFixed(1)} KB gzipped (${assets.length} files)`);
  assert(gzipped < 150 * 1024, 'bundle under 150 KB gzipped');
});

await check('setup refuses a trigger under 5 minutes, builds a custom circuit and saves the form', async (page) => {
  // Every boot reports the days left until the next fitness check: ten days gone, 18 left.
  await page.addInitScript(() => localStorage.setItem('tovin.lastRetest', new Date(Date.now() - 10 * 86_400_000).toISOString()));
  const schedule = { weekdays: [2, 3, 4, 5, 6], fromMinute: 540, toMinute: 1080, triggerAfterMinutes: 50 };
  const promises = [{ date: '2026-11-03T13:05:00Z', outcome: 'broken', exercise: 'Walk', reps: 0, cleanReps: 0, reason: 'Genuinely urgent' }];
  await bridge(page, native('setup', { onboarded: false, schedule, promises }));
  await page.goto(base);
  await page.getByText('Genuinely urgent: 1').waitFor();
  await page.getByRole('spinbutton').fill('2');
  await page.getByRole('button', { name: 'Save', exact: true }).click();
  await page.getByText('at least 5 minutes').waitFor();
  await page.getByRole('button', { name: 'Build a custom circuit' }).click();
  await page.getByLabel('Name').fill('Lunch Legs');
  await page.getByRole('button', { name: 'Add Squat', exact: true }).click();
  await page.getByRole('button', { name: 'Add Calf raise', exact: true }).click();
  await page.getByRole('button', { name: 'Save circuit' }).click();
  await page.getByRole('checkbox', { name: 'Sat' }).check();
  await page.getByLabel('From').fill('08:30');
  await page.getByLabel('Until').fill('17:15');
  await page.getByRole('spinbutton').fill('45');
  await page.getByRole('button', { name: 'Save', exact: true }).click();
  await page.getByText('Saved.').waitFor();
  await page.screenshot({ path: join(shots, 'web-setup.png'), fullPage: true });
  await audit(page, 'setup');
  same(named(await calls(page), 'saveSettings'), [
    ['saveSettings', { retestDueInDays: 18 }],
    ['saveSettings', { lockoutWorkoutId: 'custom-lunch-legs', weekdays: [2, 3, 4, 5, 6, 7], fromMinute: 510, toMinute: 1035, triggerAfterMinutes: 45, onboarded: true }],
  ]);
});

await check('the fitness check counts, times the minute and the plank, and plans around the week', async (page) => {
  await page.clock.install();
  await bridge(page, native('retest'));
  await page.goto(base);
  await page.getByRole('heading', { name: 'Push-ups in 60 seconds' }).waitFor();
  await audit(page, 'retest');
  await page.getByRole('button', { name: 'Start the minute' }).click();
  for (let i = 0; i < 21; i++) await page.getByRole('button', { name: /one more/ }).click();
  await page.clock.runFor(61_000);
  await page.getByRole('button', { name: 'Next' }).click();
  await page.getByRole('heading', { name: 'Squats in 60 seconds' }).waitFor();
  for (let i = 0; i < 36; i++) await page.getByRole('button', { name: /one more/ }).click();
  await page.getByRole('button', { name: 'I am done' }).click();
  await page.getByRole('button', { name: 'Start holding' }).click();
  await page.clock.runFor(80_000);
  await page.getByRole('button', { name: 'Stop' }).click();
  await page.getByRole('heading', { name: 'Level 4 of 5' }).waitFor();
  await page.screenshot({ path: join(shots, 'web-retest-plan.png') });
  await page.getByRole('button', { name: 'Accept plan' }).click();
  const list = await calls(page);
  // Level 4 is two sessions a day: the week's 13:00 is kept, and the first default joins it.
  same(named(list, 'setWorkoutPlan')[0][1].map((b) => b.at), ['10:30', '13:00']);
  same(named(list, 'saveSettings'), [['saveSettings', { retestDueInDays: 28 }]]);
  same(named(list, 'complete'), [['complete', 'Fitness test', 57]]);
});

await check('a bundle whose script never runs still tells the person how to leave', async (page) => {
  await page.route('**/*.js', (route) => route.abort());
  await page.goto(base);
  const note = await page.evaluate(() => getComputedStyle(document.getElementById('app'), '::before').content);
  assert(note.includes('Esc five times'), `the person still reads what to do: ${note}`);
});

await browser.close();
console.log(`${passed} passed, ${failed} failed`);
process.exit(failed ? 1 : 0);

// End to end against the built app in Debian's Chromium (driven by playwright-core; no browser
// download), with a stand-in TOVIN_NATIVE that records every message the page posts.
//
//   node e2e/run.mjs [screenshot folder]
//
// Prints one line per check and a closing "N passed, N failed"; exits non-zero on a failure.

import { createServer } from 'node:http';
import { readFile, stat, mkdir } from 'node:fs/promises';
import { gzipSync } from 'node:zlib';
import { extname, join, normalize, dirname } from 'node:path';
import { fileURLToPath } from 'node:url';
import { createRequire } from 'node:module';
import { chromium } from 'playwright-core';

const here = dirname(fileURLToPath(import.meta.url));
const dist = join(here, '..', 'dist');
const shots = process.argv[2] ?? join(here, '..', 'screenshots');
const axePath = createRequire(import.meta.url).resolve('axe-core/axe.min.js');
await mkdir(shots, { recursive: true });

// A tiny static server on loopback for the built folder.
const types = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.svg': 'image/svg+xml' };
const server = createServer(async (req, res) => {
  const path = normalize(decodeURIComponent(new URL(req.url, 'http://x').pathname)).replace(/^(\.\.[/\\])+/, '');
  const file = join(dist, path === '/' ? 'index.html' : path);
  try {
    if (!(await stat(file)).isFile()) throw new Error('not a file');
    res.writeHead(200, { 'content-type': types[extname(file)] ?? 'application/octet-stream' });
    res.end(await readFile(file));
  } catch {
    res.writeHead(404).end('not found');
  }
});
await new Promise((ok) => server.listen(0, '127.0.0.1', ok));
const base = `http://127.0.0.1:${server.address().port}/`;

const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
  args: ['--no-sandbox', '--disable-gpu', '--disable-background-networking', '--disable-component-update', '--no-first-run'],
});

let passed = 0;
let failed = 0;
async function check(name, body) {
  const context = await browser.newContext({ viewport: { width: 1280, height: 900 }, reducedMotion: 'reduce' });
  const page = await context.newPage();
  const errors = [];
  page.on('pageerror', (e) => errors.push(String(e)));
  try {
    await body(page);
    if (errors.length) throw new Error(`page errors: ${errors.join('; ')}`);
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

// The stand-in bridge: the shell's members, recording what the page posts.
async function bridge(page, native) {
  await page.addInitScript((n) => {
    window.__posted = [];
    const post = (m) => window.__posted.push(m);
    window.TOVIN_NATIVE = {
      ...n,
      complete: (exercise, reps) => post({ type: 'workoutComplete', exercise: String(exercise || ''), reps: Number(reps || 0) }),
      promisesSynced: (m) => post({ type: 'promisesSynced', promises: JSON.stringify(m || []) }),
      setBusy: (reason) => post({ type: 'busy', reason: String(reason || '') }),
      clearBusy: () => post({ type: 'busy', reason: '' }),
      saveSchedule: (b) => post({ type: 'saveSchedule', blocks: JSON.stringify(b) }),
      setWorkoutPlan: (b) => post({ type: 'setWorkoutPlan', blocks: JSON.stringify(b || []) }),
      saveSettings: (s) => post(Object.assign({ type: 'saveSettings' }, s)),
    };
  }, native);
}

const week = [
  { at: '13:00', label: 'The Classic 7', kind: 'workout', days: [2, 3, 4, 5, 6] },
  { at: '16:30', label: 'Walk', kind: 'away', minutes: 15 },
];
const history = [
  { date: '2026-11-02T13:02:00Z', outcome: 'tovin', exercise: 'The Classic 7', reps: 82, cleanReps: 82 },
  { date: '2026-11-03T13:05:00Z', outcome: 'broken', exercise: 'The Classic 7', reps: 0, cleanReps: 0, reason: 'Genuinely urgent' },
  { date: '2026-11-05T13:01:00Z', outcome: 'tovin', exercise: 'Walk', reps: 0, cleanReps: 0, attested: true },
  { date: '2026-11-06T13:00:00Z', outcome: 'tovin', exercise: 'The Classic 7', reps: 82, cleanReps: 82 },
];
const native = (mode, extra = {}) => ({
  mode, lockoutWorkoutId: 'two-minute-spark', blockLabel: null, blocks: week,
  schedule: { weekdays: [2, 3, 4, 5, 6], fromMinute: 540, toMinute: 1080, triggerAfterMinutes: 50 },
  onboarded: true, promises: history, ...extra,
});
const posted = (page) => page.evaluate(() => window.__posted);

// Under the fake clock, effects (such as moving the focus to the step's button) run on timers:
// let them run before pressing keys.
async function settle(page) {
  await page.clock.runFor(100);
}

async function audit(page, name) {
  await page.addScriptTag({ path: axePath });
  const result = await page.evaluate(async () => {
    const r = await window.axe.run(document, { resultTypes: ['violations'] });
    return r.violations.filter((v) => v.impact === 'serious' || v.impact === 'critical').map((v) => `${v.id}: ${v.help}`);
  });
  assert(result.length === 0, `${name}: accessibility violations: ${result.join(' | ')}`);
}

await check('locked boots into the workout, and a whole run posts one workoutComplete with the name and reps', async (page) => {
  await page.clock.install();
  await bridge(page, native('locked', { blockLabel: 'Lunch break' }));
  await page.goto(base);
  await page.getByRole('heading', { name: 'Jumping jacks' }).waitFor();
  assert(await page.getByText('Lunch break · Two-Minute Spark').isVisible(), 'block label shown');
  await page.screenshot({ path: join(shots, 'web-locked.png') });
  await audit(page, 'locked');
  await page.clock.runFor(31_000); // 30 s of jacks
  await page.getByRole('heading', { name: 'Rest' }).waitFor();
  await page.screenshot({ path: join(shots, 'web-rest.png') });
  await settle(page);
  await page.keyboard.press('Space'); // skip the rest
  await page.getByRole('heading', { name: 'Squat' }).waitFor();
  await settle(page);
  await page.keyboard.press('Enter'); // Done: 12 squats
  await page.clock.runFor(6_000);
  await page.getByRole('heading', { name: 'Desk push-up' }).waitFor();
  await settle(page);
  await page.keyboard.press('Space'); // Done: 10 desk push-ups
  await page.clock.runFor(6_000);
  await page.getByRole('heading', { name: 'High knees' }).waitFor();
  await page.clock.runFor(21_000);
  await page.getByRole('heading', { name: 'Promise kept.' }).waitFor();
  const messages = await posted(page);
  const done = messages.filter((m) => m.type === 'workoutComplete');
  assert(done.length === 1, `one completion, got ${JSON.stringify(done)}`);
  assert(done[0].exercise === 'Two-Minute Spark' && done[0].reps === 22, `name and reps: ${JSON.stringify(done[0])}`);
  // Busy at the start and again a minute in (the run lasts about 64 s), cleared at the end.
  const busy = messages.filter((m) => m.type === 'busy' && m.reason === 'mid-workout');
  assert(busy.length === 2, `busy at 0 and 60 s, got ${busy.length}`);
  assert(messages.at(-1).type === 'busy' && messages.at(-1).reason === '', 'busy cleared at the end');
  await page.evaluate(() => window.dispatchEvent(new CustomEvent('tovin-standing', { detail: { streak: 4, tovin: 9, broken: 1, attested: 1, best: 6 } })));
  await page.getByText('in a row').waitFor();
  await page.clock.runFor(120_000);
  const after = await posted(page);
  assert(after.filter((m) => m.type === 'workoutComplete').length === 1, 'still one completion');
  assert(after.length === messages.length, `nothing re-asserts busy once done: ${JSON.stringify(after.slice(messages.length))}`);
  await page.screenshot({ path: join(shots, 'web-done.png') });
});

await check('an unknown workout id falls back to The Classic 7, never a blank screen', async (page) => {
  await bridge(page, native('locked', { lockoutWorkoutId: 'no-such-thing' }));
  await page.goto(base);
  await page.getByRole('heading', { name: 'Jumping jacks' }).waitFor();
  assert(await page.getByText(/wasn't found/).isVisible(), 'fallback explained');
  const length = await page.evaluate(() => document.body.innerText.trim().length);
  assert(length > 19, 'body has text');
});

await check('setup shows the week and history and posts the right saveSettings', async (page) => {
  await bridge(page, native('setup', { onboarded: false, lockoutWorkoutId: undefined }));
  await page.goto(base);
  await page.getByRole('heading', { name: 'Set up your breaks' }).waitFor();
  assert(await page.getByRole('cell', { name: 'Walk' }).isVisible(), 'week shown');
  assert(await page.getByText('Genuinely urgent: 1').isVisible(), 'reasons shown');
  await page.screenshot({ path: join(shots, 'web-setup.png'), fullPage: true });
  await page.getByRole('radio', { name: /Posture Fix/ }).check();
  await page.getByRole('checkbox', { name: 'Sat' }).check();
  await page.getByLabel('From').fill('08:30');
  await page.getByLabel('Until').fill('17:15');
  await page.getByRole('spinbutton').fill('45');
  await page.getByRole('button', { name: 'Save', exact: true }).click();
  await page.getByText('Saved.').waitFor();
  const save = (await posted(page)).filter((m) => m.type === 'saveSettings');
  assert(save.length === 1, `one save, got ${save.length}`);
  const s = save[0];
  assert(s.lockoutWorkoutId === 'posture-fix' && JSON.stringify(s.weekdays) === '[2,3,4,5,6,7]' && s.fromMinute === 510 &&
    s.toMinute === 1035 && s.triggerAfterMinutes === 45 && s.onboarded === true, JSON.stringify(s));
  await audit(page, 'setup');
});

await check('setup refuses a trigger under 5 minutes and builds a custom circuit', async (page) => {
  await bridge(page, native('setup'));
  await page.goto(base);
  await page.getByRole('spinbutton').fill('2');
  await page.getByRole('button', { name: 'Save', exact: true }).click();
  await page.getByText('at least 5 minutes').waitFor();
  assert((await posted(page)).filter((m) => m.type === 'saveSettings').length === 0, 'nothing saved');
  await page.getByRole('button', { name: 'Build a custom circuit' }).click();
  await page.getByLabel('Name').fill('Lunch Legs');
  await page.getByRole('button', { name: 'Add Squat', exact: true }).click();
  await page.getByRole('button', { name: 'Add Calf raise', exact: true }).click();
  await page.getByRole('button', { name: 'Save circuit' }).click();
  assert(await page.getByRole('radio', { name: /Lunch Legs/ }).isChecked(), 'new circuit chosen');
  await page.getByRole('spinbutton').fill('50');
  await page.getByRole('button', { name: 'Save', exact: true }).click();
  const s = (await posted(page)).filter((m) => m.type === 'saveSettings').at(-1);
  assert(s.lockoutWorkoutId === 'custom-lunch-legs', JSON.stringify(s));
});

await check('retest runs the three tests and posts a plan and the next due date', async (page) => {
  await page.clock.install();
  await bridge(page, native('retest'));
  await page.goto(base);
  await page.getByRole('heading', { name: 'Push-ups in 60 seconds' }).waitFor();
  await page.screenshot({ path: join(shots, 'web-retest.png') });
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
  await page.getByRole('heading', { name: 'Plan accepted.' }).waitFor();
  const messages = await posted(page);
  const plan = messages.filter((m) => m.type === 'setWorkoutPlan');
  assert(plan.length === 1, 'one plan');
  const blocks = JSON.parse(plan[0].blocks);
  assert(blocks.length === 2 && blocks.every((b) => b.kind === 'workout' && b.label === 'The Classic 7' &&
    JSON.stringify(b.days) === '[2,3,4,5,6]'), JSON.stringify(blocks));
  assert(blocks.some((b) => b.at === '13:00'), `the existing session time is kept: ${JSON.stringify(blocks)}`);
  assert(messages.some((m) => m.type === 'saveSettings' && m.retestDueInDays === 28), 'next test in 28 days');
  const done = messages.filter((m) => m.type === 'workoutComplete');
  assert(done.length === 1 && done[0].exercise === 'Fitness test' && done[0].reps === 57,
    `a fitness check over the shield ends as a kept promise: ${JSON.stringify(done)}`);
});

await check('a page prepared behind the countdown starts nothing until the shell shows it', async (page) => {
  await page.clock.install();
  await bridge(page, native('locked', { shown: false }));
  await page.goto(base);
  await page.getByRole('heading', { name: 'Jumping jacks' }).waitFor();
  await page.clock.runFor(45_000); // a countdown's worth
  assert((await posted(page)).length === 0, `nothing posted while prepared: ${JSON.stringify(await posted(page))}`);
  assert(await page.getByText('0:30').isVisible(), 'the first move keeps its whole time');
  await page.evaluate(() => {
    window.TOVIN_NATIVE.shown = true;
    window.dispatchEvent(new CustomEvent('tovin-shown'));
  });
  await page.clock.runFor(10_000);
  const timer = await page.getByRole('timer').textContent();
  assert(timer === '0:20' || timer === '0:21', `the clock runs once shown: ${timer}`);
  assert((await posted(page)).some((m) => m.type === 'busy' && m.reason === 'mid-workout'), 'marked busy once shown');
});

await check('a bundle whose script never runs shows its note as no text the shell could count', async (page) => {
  await page.route('**/*.js', (route) => route.abort());
  await bridge(page, native('locked'));
  await page.goto(base);
  await page.waitForTimeout(300);
  const length = await page.evaluate(() => document.body.innerText.trim().length);
  assert(length <= 19, `the shell's render check must see a failed page, saw ${length} characters`);
  const note = await page.evaluate(() => getComputedStyle(document.getElementById('app'), '::before').content);
  assert(note.includes('Esc five times'), `the person still reads what to do: ${note}`);
  await page.screenshot({ path: join(shots, 'web-boot-failed.png') });
});

await check('every boot reports the days left until the next fitness check', async (page) => {
  await page.addInitScript(() => localStorage.setItem('tovin.lastRetest', new Date(Date.now() - 10 * 86_400_000).toISOString()));
  await bridge(page, native('setup'));
  await page.goto(base);
  await page.getByRole('heading', { name: 'Your setup' }).waitFor();
  const report = (await posted(page)).find((m) => m.type === 'saveSettings');
  assert(report && report.retestDueInDays === 18, JSON.stringify(report));
});

await check('without a bridge, a development stand-in boots the setup screen', async (page) => {
  await page.goto(`${base}?mode=setup`);
  await page.getByRole('heading', { name: 'Set up your breaks' }).waitFor();
});

await check('first render is quick; the bundle is small', async (page) => {
  await bridge(page, native('locked'));
  await page.goto(base);
  await page.getByRole('heading', { name: 'Jumping jacks' }).waitFor();
  const firstRender = await page.evaluate(() => {
    const nav = performance.getEntriesByType('navigation')[0];
    const paint = performance.getEntriesByName('first-contentful-paint')[0];
    return { dcl: nav.domContentLoadedEventEnd, fcp: paint ? paint.startTime : -1 };
  });
  const index = await readFile(join(dist, 'index.html'), 'utf8');
  const assets = [...index.matchAll(/(?:src|href)="\.?\/?(assets\/[^"]+\.(?:js|css))"/g)].map((m) => m[1]);
  let gzipped = 0;
  for (const a of assets) gzipped += gzipSync(await readFile(join(dist, a)), { level: 9 }).length;
  console.log(`     figures: JS+CSS ${(gzipped / 1024).toFixed(1)} KB gzipped (${assets.length} files); ` +
    `DOMContentLoaded ${firstRender.dcl.toFixed(0)} ms, first contentful paint ${firstRender.fcp.toFixed(0)} ms`);
  assert(gzipped < 150 * 1024, 'bundle under 150 KB gzipped');
});

await browser.close();
server.close();
console.log(`${passed} passed, ${failed} failed`);
process.exit(failed ? 1 : 0);

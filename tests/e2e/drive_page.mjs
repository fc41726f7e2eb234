// Works the page inside the running app through Qt WebEngine's remote-debugging port (test-only,
// set by the end-to-end check). The shield keeps every key but Esc from the page, so a person's
// clicks are made here, the way a person would make them: on the buttons they see.
//
//   node --experimental-websocket drive_page.mjs PORT TIMEOUT workout
//       presses the step's primary button (Done, Skip rest) whenever there is one and lets timed
//       holds run, until the page says the promise is kept
//   node --experimental-websocket drive_page.mjs PORT TIMEOUT retest
//       answers the fitness check (push-ups, squats, the plank) and accepts the plan
//   node --experimental-websocket drive_page.mjs PORT TIMEOUT first-timer MIN_SECONDS
//       prints the workout's timer and fails unless it still shows at least MIN_SECONDS
//   node --experimental-websocket drive_page.mjs PORT TIMEOUT has-text TEXT
//       waits until the page shows TEXT
//   node --experimental-websocket drive_page.mjs PORT TIMEOUT rendered
//       waits until the page shows more than 19 characters, as the app's render check asks

const [port, timeoutArg, mode = 'workout', minArg] = process.argv.slice(2);
const deadline = Date.now() + Number(timeoutArg ?? 150) * 1000;
const sleep = (ms) => new Promise((ok) => setTimeout(ok, ms));

async function pageSocket() {
  while (Date.now() < deadline) {
    try {
      const targets = await (await fetch(`http://127.0.0.1:${port}/json`)).json();
      const page = targets.find((t) => t.type === 'page' && t.url.startsWith('tovin://app'));
      if (page) return page.webSocketDebuggerUrl;
    } catch {
      // the engine is not up yet
    }
    await sleep(50);
  }
  throw new Error('no workout page to drive');
}

const ws = new WebSocket(await pageSocket());
await new Promise((ok, fail) => { ws.onopen = ok; ws.onerror = fail; });
let id = 0;
const pending = new Map();
ws.onmessage = (m) => {
  const msg = JSON.parse(m.data);
  if (pending.has(msg.id)) { pending.get(msg.id)(msg); pending.delete(msg.id); }
};
const evaluate = (expression) => new Promise((ok) => {
  const n = ++id;
  pending.set(n, (msg) => ok(msg.result?.result?.value));
  ws.send(JSON.stringify({ id: n, method: 'Runtime.evaluate', params: { expression, returnByValue: true } }));
});
const finish = (ok, line) => {
  console.log(line);
  ws.close();
  process.exit(ok ? 0 : 1);
};

// Clicks the first visible button whose text is one of the given, and returns the heading.
const click = (labels) => `(() => {
  const wanted = ${JSON.stringify(labels)};
  const b = [...document.querySelectorAll('button')].find((x) => wanted.includes(x.textContent.trim()) && !x.disabled);
  if (b) b.click();
  const h1 = document.querySelector('h1');
  return h1 ? h1.textContent : '';
})()`;

async function until(labels, goal, every = 1000) {
  let heading = '';
  while (Date.now() < deadline) {
    heading = (await evaluate(click(labels))) ?? '';
    if (heading === goal) return heading;
    await sleep(every);
  }
  return heading;
}

if (mode === 'first-timer') {
  const min = Number(minArg ?? 0);
  let text;
  while (Date.now() < deadline && !text) {
    text = await evaluate(`document.querySelector('[role=timer]')?.textContent`);
    if (!text) await sleep(200);
  }
  const [m, s] = String(text ?? '').split(':').map(Number);
  const seconds = m * 60 + s;
  finish(seconds >= min, `first step's timer when the shield rose: ${text} (wanted at least ${min} s)`);
} else if (mode === 'rendered') {
  // As the app's own render check judges it: more than 19 characters of text.
  let length = 0;
  while (Date.now() < deadline) {
    length = (await evaluate('document.body ? document.body.innerText.trim().length : 0')) ?? 0;
    if (length > 19) break;
    await sleep(50);
  }
  finish(length > 19, `page shows ${length} characters`);
} else if (mode === 'has-text') {
  let text = '';
  while (Date.now() < deadline) {
    text = (await evaluate('document.body.innerText')) ?? '';
    if (text.includes(minArg)) break;
    await sleep(50);
  }
  finish(text.includes(minArg), `page ${text.includes(minArg) ? 'shows' : 'never showed'} "${minArg}"`);
} else if (mode === 'retest') {
  // 'I am done' twice (push-ups, squats), then the plank, then the plan.
  const heading = await until(['I am done', 'Start holding', 'Stop', 'Accept plan'], 'Plan accepted.', 700);
  finish(heading === 'Plan accepted.', `page says: ${heading}`);
} else {
  const heading = await until(['Done', 'Skip rest'], 'Promise kept.');
  finish(heading === 'Promise kept.', `page says: ${heading}`);
}

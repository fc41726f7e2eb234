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
// One evaluation at a time, each answered under its own id.
let id = 0;
let answer = () => {};
ws.onmessage = (m) => answer(JSON.parse(m.data));
const evaluate = (expression) => new Promise((ok) => {
  const n = ++id;
  answer = (msg) => msg.id === n && ok(msg.result?.result?.value);
  ws.send(JSON.stringify({ id: n, method: 'Runtime.evaluate', params: { expression, returnByValue: true } }));
});
const finish = (ok, line) => {
  console.log(line);
  ws.close();
  process.exit(ok ? 0 : 1);
};

// Evaluates the expression until its value is done, or time is up; returns the last value.
async function poll(expression, done, every = 50) {
  let value = await evaluate(expression);
  while (!done(value) && Date.now() < deadline) {
    await sleep(every);
    value = await evaluate(expression);
  }
  return value;
}

// Clicks the first enabled button whose text is one of the given, and returns the heading.
const click = (labels) => `(() => {
  const wanted = ${JSON.stringify(labels)};
  const b = [...document.querySelectorAll('button')].find((x) => wanted.includes(x.textContent.trim()) && !x.disabled);
  if (b) b.click();
  const h1 = document.querySelector('h1');
  return h1 ? h1.textContent : '';
})()`;

if (mode === 'first-timer') {
  const min = Number(minArg ?? 0);
  const text = await poll(`document.querySelector('[role=timer]')?.textContent`, Boolean, 200);
  const [m, s] = String(text ?? '').split(':').map(Number);
  finish(m * 60 + s >= min, `first step's timer when the shield rose: ${text} (wanted at least ${min} s)`);
} else if (mode === 'rendered') {
  // As the app's own render check judges it: more than 19 characters of text.
  const length = await poll('document.body ? document.body.innerText.trim().length : 0', (n) => n > 19);
  finish(length > 19, `page shows ${length} characters`);
} else if (mode === 'has-text') {
  const text = (await poll('document.body.innerText', (t) => String(t).includes(minArg))) ?? '';
  finish(text.includes(minArg), `page ${text.includes(minArg) ? 'shows' : 'never showed'} "${minArg}"`);
} else {
  // Retest: 'I am done' twice (push-ups, squats), then the plank, then the plan.
  const [labels, goal, every] = mode === 'retest'
    ? [['I am done', 'Start holding', 'Stop', 'Accept plan'], 'Plan accepted.', 700]
    : [['Done', 'Skip rest'], 'Promise kept.', 1000];
  const heading = await poll(click(labels), (h) => h === goal, every);
  finish(heading === goal, `page says: ${heading}`);
}

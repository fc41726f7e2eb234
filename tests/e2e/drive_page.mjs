// Works the workout page inside the running app through Qt WebEngine's remote-debugging port
// (test-only, set by the end-to-end check): presses the step's primary button (Done, Skip rest)
// whenever there is one, lets timed holds run, until the page says the promise is kept.
//
//   node --experimental-websocket drive_page.mjs PORT [timeout seconds]

const [port, timeoutArg] = process.argv.slice(2);
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
    await sleep(500);
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

const step = `(() => {
  const h1 = document.querySelector('h1');
  const b = document.querySelector('button.primary');
  if (b && (b.textContent === 'Done' || b.textContent === 'Skip rest')) b.click();
  return h1 ? h1.textContent : '';
})()`;

let heading = '';
while (Date.now() < deadline) {
  heading = (await evaluate(step)) ?? '';
  if (heading === 'Promise kept.') break;
  await sleep(1000);
}
console.log(`page says: ${heading}`);
ws.close();
process.exit(heading === 'Promise kept.' ? 0 : 1);

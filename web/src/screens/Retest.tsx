import { useEffect, useRef, useState } from 'preact/hooks';

import { presets } from '../catalogue';
import { clock } from '../format';
import { DayPicker } from '../components/DayPicker';
import { useShown, type Native } from '../native';
import { lastRetestKey, level, planBlocks, prescription, retestEveryDays, type RetestResults } from '../retest';

type Stage = 'pushups' | 'squats' | 'plank' | 'plan' | 'accepted';

// The fitness check: push-ups and squats in a minute each, a plank hold, then a level and a
// weekly plan at the times the person picks. Accepting hands the plan to the shell and, as
// for any workout, tells it the promise is kept: a fitness check over the shield ends there.
export function Retest({ native }: { native: Native }) {
  const shown = useShown();
  const [stage, setStage] = useState<Stage>('pushups');
  const [results, setResults] = useState<RetestResults>({ pushups: 0, squats: 0, plankSeconds: 0 });

  useEffect(() => {
    if (!shown || stage === 'accepted') return;
    native.setBusy('fitness check');
    const again = window.setInterval(() => native.setBusy('fitness check'), 60_000);
    return () => window.clearInterval(again);
  }, [shown, stage === 'accepted']);

  return (
    <div class="screen retest">
      <header>
        <p class="eyebrow">Fitness check</p>
        <p class="muted small">Three short tests, then a plan that fits you. About five minutes.</p>
      </header>
      {stage === 'pushups' && (
        <CountTest
          title="Push-ups in 60 seconds"
          how="Full push-ups, or from the knees if that is where you are. Count every clean one."
          onDone={(n) => {
            setResults((r) => ({ ...r, pushups: n }));
            setStage('squats');
          }}
        />
      )}
      {stage === 'squats' && (
        <CountTest
          title="Squats in 60 seconds"
          how="Thighs level at the bottom, stand tall at the top."
          onDone={(n) => {
            setResults((r) => ({ ...r, squats: n }));
            setStage('plank');
          }}
        />
      )}
      {stage === 'plank' && (
        <PlankTest
          onDone={(seconds) => {
            setResults((r) => ({ ...r, plankSeconds: seconds }));
            setStage('plan');
          }}
        />
      )}
      {stage === 'plan' && (
        <Plan
          native={native}
          results={results}
          onAccept={() => {
            native.clearBusy();
            native.complete('Fitness test', results.pushups + results.squats);
            setStage('accepted');
          }}
        />
      )}
      {stage === 'accepted' && (
        <section aria-labelledby="accepted-title">
          <h1 id="accepted-title">Plan accepted.</h1>
          <p class="lead">It is in your week now. The next fitness check is in {retestEveryDays} days.</p>
          <p class="muted">Promise kept. Your screen comes back in a moment.</p>
        </section>
      )}
    </div>
  );
}

function CountTest({ title, how, onDone }: { title: string; how: string; onDone: (n: number) => void }) {
  const [count, setCount] = useState(0);
  const [left, setLeft] = useState<number | undefined>();
  const start = useRef<HTMLButtonElement>(null);
  useEffect(() => start.current?.focus(), [title]);
  useEffect(() => {
    if (left === undefined || left <= 0) return;
    const begun = Date.now();
    const base = left;
    const id = window.setInterval(() => setLeft(Math.max(0, base - (Date.now() - begun) / 1000)), 200);
    return () => window.clearInterval(id);
  }, [left === undefined]);

  return (
    <section aria-labelledby="test-title">
      <h1 id="test-title">{title}</h1>
      <p class="lead">{how}</p>
      <p class="timer" role="timer">{clock(left ?? 60)}</p>
      {left === undefined && (
        <button ref={start} class="secondary" onClick={() => setLeft(60)}>
          Start the minute
        </button>
      )}
      <div class="counter">
        <button class="secondary" aria-label="−1, one fewer" onClick={() => setCount((c) => Math.max(0, c - 1))}>
          −1
        </button>
        <output aria-live="polite" aria-label="Count">{count}</output>
        <button class="primary" aria-label="+1, one more" onClick={() => setCount((c) => c + 1)}>
          +1
        </button>
      </div>
      <button class="primary" onClick={() => onDone(count)}>
        {left !== undefined && left <= 0 ? 'Next' : 'I am done'}
      </button>
    </section>
  );
}

function PlankTest({ onDone }: { onDone: (seconds: number) => void }) {
  const [startedAt, setStartedAt] = useState<number | undefined>();
  const [held, setHeld] = useState(0);
  const button = useRef<HTMLButtonElement>(null);
  useEffect(() => button.current?.focus(), [startedAt === undefined]);
  useEffect(() => {
    if (startedAt === undefined) return;
    const id = window.setInterval(() => setHeld((Date.now() - startedAt) / 1000), 200);
    return () => window.clearInterval(id);
  }, [startedAt]);

  return (
    <section aria-labelledby="plank-title">
      <h1 id="plank-title">Plank hold</h1>
      <p class="lead">Forearms down, body straight. Start the clock, then stop it when your form goes.</p>
      <p class="timer" role="timer">{clock(held)}</p>
      {startedAt === undefined ? (
        <button ref={button} class="primary" onClick={() => setStartedAt(Date.now())}>
          Start holding
        </button>
      ) : (
        <button ref={button} class="primary" onClick={() => onDone(Math.round((Date.now() - startedAt) / 1000))}>
          Stop
        </button>
      )}
    </section>
  );
}

function Plan({ native, results, onAccept }: { native: Native; results: RetestResults; onAccept: () => void }) {
  const lvl = level(results);
  const { sessionsPerDay, circuitId } = prescription(lvl);
  const existing = native.blocks.filter((b) => b.kind === 'workout').map((b) => b.at);
  const defaults = [...existing, '10:30', '14:30', '16:00'].slice(0, sessionsPerDay);
  const [times, setTimes] = useState(defaults);
  const [days, setDays] = useState(new Set([2, 3, 4, 5, 6]));
  const blocks = planBlocks(lvl, times, [...days]);
  const circuit = presets.find((p) => p.id === circuitId)!;
  const heading = useRef<HTMLHeadingElement>(null);
  useEffect(() => heading.current?.focus(), []);

  return (
    <section aria-labelledby="plan-title">
      <h1 id="plan-title" ref={heading} tabIndex={-1}>
        Level {lvl} of 5
      </h1>
      <p class="lead">
        {results.pushups} push-ups, {results.squats} squats, a {results.plankSeconds}s plank. Your plan: {circuit.name},{' '}
        {sessionsPerDay === 1 ? 'once a day' : `${sessionsPerDay} times a day`}.
      </p>
      <div class="row">
        {times.map((t, i) => (
          <label>
            Session {i + 1}
            <input
              type="time"
              value={t}
              onInput={(e) => setTimes(times.map((x, j) => (j === i ? (e.target as HTMLInputElement).value : x)))}
            />
          </label>
        ))}
      </div>
      <DayPicker days={days} onChange={setDays} />
      <ul class="plain">
        {blocks.map((b) => (
          <li>
            {b.at} — {b.label}
          </li>
        ))}
      </ul>
      <button
        class="primary"
        disabled={blocks.length === 0 || days.size === 0}
        onClick={() => {
          native.setWorkoutPlan(blocks);
          native.saveSettings({ retestDueInDays: retestEveryDays });
          try {
            window.localStorage.setItem(lastRetestKey, new Date().toISOString());
          } catch {
            // Without storage the next boot simply cannot say when the test is due.
          }
          onAccept();
        }}
      >
        Accept plan
      </button>
    </section>
  );
}

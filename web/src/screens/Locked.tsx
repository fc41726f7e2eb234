import { useEffect, useRef, useState } from 'preact/hooks';

import type { Circuit } from '../catalogue';
import { Figure } from '../components/Figure';
import { StandingLine } from '../components/Standing';
import { clock } from '../format';
import { onStanding, useShown, type Native, type Standing } from '../native';
import * as run from '../runner';

const busyReason = 'mid-workout';
const busyEverySeconds = 60;

// The lockout itself: straight into the chosen circuit, one move at a time, and a calm screen
// at the end. While it runs the shell is told the person is mid-session. A page prepared behind
// the countdown waits, clock and mark untouched, until the shield shows it.
export function Locked({ native, circuit, fellBack }: { native: Native; circuit: Circuit; fellBack: boolean }) {
  const shown = useShown();
  const [state, setState] = useState(() => run.start(circuit));
  const [paused, setPaused] = useState(false);
  const [standing, setStanding] = useState<Standing | undefined>();
  const reported = useRef(false);
  const primary = useRef<HTMLButtonElement>(null);

  useEffect(() => onStanding(setStanding), []);

  // Mid-session while the run lasts, re-asserted so the mark lapses if this window dies.
  useEffect(() => {
    if (!shown || state.finished) return;
    native.setBusy(busyReason);
    const again = window.setInterval(() => native.setBusy(busyReason), busyEverySeconds * 1000);
    return () => window.clearInterval(again);
  }, [shown, state.finished]);

  // Timed steps count down by the wall clock, so a slow frame never stretches a hold.
  useEffect(() => {
    if (!shown || state.finished || paused || state.remaining === undefined) return;
    let last = Date.now();
    const id = window.setInterval(() => {
      const now = Date.now();
      const elapsed = (now - last) / 1000;
      last = now;
      setState((s) => run.tick(s, elapsed));
    }, 200);
    return () => window.clearInterval(id);
  }, [shown, state.finished, state.index, paused, state.remaining === undefined]);

  useEffect(() => {
    if (!state.finished || reported.current) return;
    reported.current = true;
    native.complete(circuit.name, state.reps);
    native.clearBusy();
  }, [state.finished]);

  // The main button has the keyboard at every step: Space or Return works it.
  useEffect(() => primary.current?.focus(), [shown, state.index, state.finished, paused]);

  if (state.finished) {
    return (
      <section class="screen done" aria-labelledby="done-title">
        <p class="eyebrow">{circuit.name}</p>
        <h1 id="done-title">Promise kept.</h1>
        <p class="lead">
          {state.reps > 0 ? `${state.reps} reps, every move done.` : 'Every move done.'} Your screen comes back in a moment.
        </p>
        {standing ? <StandingLine standing={standing} /> : <p class="muted">Counting your streak…</p>}
      </section>
    );
  }

  const step = run.current(state)!;
  const next = run.nextExercise(state);
  const header = (
    <header class="run-header">
      <p class="eyebrow">
        {native.blockLabel ? `${native.blockLabel} · ` : ''}
        {circuit.name}
      </p>
      {fellBack && <p class="muted small">Your chosen workout wasn't found, so here is {circuit.name}.</p>}
    </header>
  );

  if (step.kind === 'rest') {
    return (
      <section class="screen run rest" aria-labelledby="rest-title">
        {header}
        <h1 id="rest-title">Rest</h1>
        <p class="timer" role="timer" aria-live="off">{clock(state.remaining ?? 0)}</p>
        <div class="next-up">
          <Figure pose={step.next.pose} label={step.next.name} />
          <p>
            Next up: <strong>{step.next.name}</strong>
          </p>
        </div>
        <button ref={primary} class="primary" onClick={() => setState((s) => run.complete(s))}>
          Skip rest
        </button>
      </section>
    );
  }

  const timed = 'seconds' in step.target;
  return (
    <section class="screen run" aria-labelledby="move-title">
      {header}
      <p class="progress">
        Move {step.index + 1} of {step.count}
      </p>
      <div class="move">
        <Figure pose={step.exercise.pose} label={step.exercise.name} />
        <div>
          <h1 id="move-title">{step.exercise.name}</h1>
          <ul class="cues">
            {step.exercise.cues.map((c) => (
              <li>{c}</li>
            ))}
          </ul>
        </div>
      </div>
      {timed ? (
        <>
          <p class="timer" role="timer" aria-live="off">{clock(state.remaining ?? 0)}</p>
          <button ref={primary} class="secondary" onClick={() => setPaused((p) => !p)}>
            {paused ? 'Resume' : 'Pause'}
          </button>
        </>
      ) : (
        <>
          <p class="target">{'reps' in step.target ? `${step.target.reps} reps` : ''}</p>
          <button ref={primary} class="primary big" onClick={() => setState((s) => run.complete(s))}>
            Done
          </button>
        </>
      )}
      {next && <p class="muted">Next up: {next.name}</p>}
    </section>
  );
}

// A guided run through a circuit, as a pure state machine the screen renders: exercise steps
// (a rep target finished with "Done", or a timed hold that counts down) alternating with rests.

import { exercise, type Circuit, type Exercise, type Target } from './catalogue';

export type Step =
  | { kind: 'exercise'; exercise: Exercise; target: Target; index: number; count: number }
  | { kind: 'rest'; seconds: number; next: Exercise };

export function stepsOf(circuit: Circuit): Step[] {
  const moves = circuit.items
    .map((item) => ({ ex: exercise(item.exercise), target: item.target }))
    .filter((m): m is { ex: Exercise; target: Target | undefined } => m.ex !== undefined);
  const steps: Step[] = [];
  moves.forEach((m, i) => {
    if (i > 0 && circuit.restSeconds > 0)
      steps.push({ kind: 'rest', seconds: circuit.restSeconds, next: m.ex });
    steps.push({ kind: 'exercise', exercise: m.ex, target: m.target ?? m.ex.target, index: i, count: moves.length });
  });
  return steps;
}

export interface RunState {
  steps: Step[];
  index: number;
  /** Seconds left in a timed step (exercise hold or rest); undefined for a rep step. */
  remaining?: number;
  reps: number;
  finished: boolean;
}

function enter(steps: Step[], index: number, reps: number): RunState {
  if (index >= steps.length) return { steps, index, reps, finished: true };
  const step = steps[index];
  const remaining =
    step.kind === 'rest' ? step.seconds : 'seconds' in step.target ? step.target.seconds : undefined;
  return { steps, index, remaining, reps, finished: false };
}

export function start(circuit: Circuit): RunState {
  return enter(stepsOf(circuit), 0, 0);
}

export function current(state: RunState): Step | undefined {
  return state.steps[state.index];
}

/** The next exercise after the current step, for the "next up" preview. */
export function nextExercise(state: RunState): Exercise | undefined {
  for (let i = state.index + 1; i < state.steps.length; i++) {
    const s = state.steps[i];
    if (s.kind === 'exercise') return s.exercise;
  }
  return undefined;
}

/** The person finished the current step ("Done" on a rep move, or "Skip rest"). */
export function complete(state: RunState): RunState {
  const step = current(state);
  if (state.finished || !step) return state;
  const earned = step.kind === 'exercise' && 'reps' in step.target ? step.target.reps : 0;
  return enter(state.steps, state.index + 1, state.reps + earned);
}

/** Time passes; timed steps count down and move on by themselves at zero. */
export function tick(state: RunState, seconds: number): RunState {
  let s = state;
  let left = seconds;
  while (!s.finished && s.remaining !== undefined && left > 0) {
    if (left < s.remaining) return { ...s, remaining: s.remaining - left };
    left -= s.remaining;
    s = complete(s);
  }
  return s;
}

/** Rough length of the whole run, for the intro line. */
export function totalSeconds(circuit: Circuit, secondsPerRep = 3): number {
  return stepsOf(circuit).reduce((sum, step) => {
    if (step.kind === 'rest') return sum + step.seconds;
    return sum + ('seconds' in step.target ? step.target.seconds : step.target.reps * secondsPerRep);
  }, 0);
}

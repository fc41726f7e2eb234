import { describe, expect, it } from 'vitest';

import type { Circuit } from '../src/catalogue';
import * as run from '../src/runner';

const circuit: Circuit = {
  id: 't',
  name: 'Test circuit',
  description: '',
  restSeconds: 10,
  items: [{ exercise: 'squat', target: { reps: 12 } }, { exercise: 'plank', target: { seconds: 30 } }, { exercise: 'push-up' }],
};

describe('runner', () => {
  it('puts rests only between moves, and none when the circuit has no rest', () => {
    expect(run.stepsOf(circuit).map((s) => s.kind)).toEqual(['exercise', 'rest', 'exercise', 'rest', 'exercise']);
    expect(run.stepsOf({ ...circuit, restSeconds: 0 }).map((s) => s.kind)).toEqual(['exercise', 'exercise', 'exercise']);
    expect(run.nextExercise(run.start(circuit))?.id).toBe('plank');
  });

  it('waits for Done on rep moves, while one long tick carries timed steps on by themselves', () => {
    let s = run.tick(run.start(circuit), 1000);
    expect(s.index).toBe(0); // a rep move never times out
    s = run.complete(s); // 12 squats
    expect(s.remaining).toBe(10); // rest
    s = run.tick(s, 10 + 30 + 3); // the rest ends, the 30 s plank runs, 3 s into the next rest
    expect(run.current(s)?.kind).toBe('rest');
    expect(s.remaining).toBeCloseTo(7);
    expect(s.reps).toBe(12); // a timed hold adds no reps
    s = run.complete(run.complete(s)); // skip the rest, then 10 push-ups (the catalogue's target)
    expect(s).toMatchObject({ finished: true, reps: 22 });
    expect(run.complete(s)).toBe(s);
  });
});

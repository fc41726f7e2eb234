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
  it('alternates moves with rests and never starts or ends on a rest', () => {
    expect(run.stepsOf(circuit).map((s) => s.kind)).toEqual(['exercise', 'rest', 'exercise', 'rest', 'exercise']);
    expect(run.stepsOf({ ...circuit, restSeconds: 0 }).map((s) => s.kind)).toEqual(['exercise', 'exercise', 'exercise']);
  });

  it('waits for Done on rep moves and counts the reps, while timed steps move on by themselves', () => {
    let s = run.start(circuit);
    expect(s.remaining).toBeUndefined();
    s = run.tick(s, 1000);
    expect(s.index).toBe(0); // a rep move never times out
    s = run.complete(s); // 12 squats
    expect(s.reps).toBe(12);
    expect(s.remaining).toBe(10); // rest
    s = run.tick(s, 9.5);
    expect(s.remaining).toBeCloseTo(0.5);
    s = run.tick(s, 0.5 + 30 + 3); // the rest ends, the 30 s plank runs, 3 s into the next rest
    expect(run.current(s)?.kind).toBe('rest');
    expect(s.remaining).toBeCloseTo(7);
    expect(s.reps).toBe(12); // a timed hold adds no reps
    s = run.complete(s); // skip the rest
    s = run.complete(s); // 10 push-ups (the catalogue's target)
    expect(s.finished).toBe(true);
    expect(s.reps).toBe(22);
    expect(run.complete(s)).toBe(s);
  });

  it('previews the next move, not the rest before it', () => {
    const s = run.start(circuit);
    expect(run.nextExercise(s)?.id).toBe('plank');
    expect(run.totalSeconds(circuit)).toBe(12 * 3 + 10 + 30 + 10 + 10 * 3);
  });
});

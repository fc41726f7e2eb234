import { describe, expect, it } from 'vitest';

import { exercise, exercises, presets } from '../src/catalogue';

// The catalogue is hand-written data: a typo in it shows as a missing move or an absurd target.
describe('catalogue', () => {
  it('gives every exercise a unique id, two or three cues and a doable target', () => {
    expect(new Set(exercises.map((e) => e.id)).size).toBe(exercises.length);
    for (const e of exercises) {
      expect(e.cues.length, e.id).toBeGreaterThanOrEqual(2);
      expect(e.cues.length, e.id).toBeLessThanOrEqual(3);
      const [amount, low, high] = 'reps' in e.target ? [e.target.reps, 5, 30] : [e.target.seconds, 15, 60];
      expect(amount, e.id).toBeGreaterThanOrEqual(low);
      expect(amount, e.id).toBeLessThanOrEqual(high);
      for (const variant of [e.easier, e.harder].filter((v) => v !== undefined)) {
        expect(exercise(variant!), `${e.id} → ${variant}`).toBeDefined();
        expect(variant).not.toBe(e.id);
      }
    }
  });

  it('builds every preset, unique by id, from exercises that exist', () => {
    expect(new Set(presets.map((p) => p.id)).size).toBe(presets.length);
    for (const p of presets) {
      expect(p.items.length, p.id).toBeGreaterThanOrEqual(4);
      for (const item of p.items) expect(exercise(item.exercise), `${p.id}: ${item.exercise}`).toBeDefined();
    }
  });
});

import { describe, expect, it } from 'vitest';

import { categoryNames, defaultCircuitId, exercise, exercises, presets } from '../src/catalogue';

describe('catalogue', () => {
  it('holds 70 exercises with unique ids and every field sane', () => {
    expect(exercises).toHaveLength(70);
    expect(new Set(exercises.map((e) => e.id)).size).toBe(70);
    for (const e of exercises) {
      expect(e.name.length, e.id).toBeGreaterThan(2);
      expect(Object.keys(categoryNames)).toContain(e.category);
      expect(e.cues.length, e.id).toBeGreaterThanOrEqual(2);
      expect(e.cues.length, e.id).toBeLessThanOrEqual(3);
      const t = e.target;
      if ('reps' in t) expect(t.reps, e.id).toBeGreaterThanOrEqual(5), expect(t.reps, e.id).toBeLessThanOrEqual(30);
      else expect(t.seconds, e.id).toBeGreaterThanOrEqual(15), expect(t.seconds, e.id).toBeLessThanOrEqual(60);
    }
  });

  it('points every easier and harder variant at an exercise that exists, never itself', () => {
    for (const e of exercises) {
      for (const variant of [e.easier, e.harder]) {
        if (variant === undefined) continue;
        expect(exercise(variant), `${e.id} → ${variant}`).toBeDefined();
        expect(variant).not.toBe(e.id);
      }
    }
  });

  it('resolves every preset, with unique ids and the example week\'s circuit among them', () => {
    expect(new Set(presets.map((p) => p.id)).size).toBe(presets.length);
    expect(presets.find((p) => p.id === defaultCircuitId)?.name).toBe('The Classic 7');
    for (const p of presets) {
      expect(p.items.length, p.id).toBeGreaterThanOrEqual(4);
      for (const item of p.items) expect(exercise(item.exercise), `${p.id}: ${item.exercise}`).toBeDefined();
    }
    expect(presets.find((p) => p.id === 'classic-7')?.items).toHaveLength(12);
  });
});

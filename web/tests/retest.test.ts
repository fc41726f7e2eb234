import { describe, expect, it } from 'vitest';

import { daysUntilRetest, level, planBlocks } from '../src/retest';

describe('retest scoring', () => {
  it('places results on levels 1 to 5, and more of anything never lowers the level', () => {
    expect(level({ pushups: 0, squats: 0, plankSeconds: 0 })).toBe(1);
    expect(level({ pushups: 12, squats: 25, plankSeconds: 20 })).toBe(2); // one band short of level 3
    expect(level({ pushups: 12, squats: 25, plankSeconds: 45 })).toBe(3);
    expect(level({ pushups: 60, squats: 80, plankSeconds: 300 })).toBe(5);
    const levels = [...Array(13).keys()].map((i) => level({ pushups: 5 * i, squats: 5 * i, plankSeconds: 10 * i }));
    expect(levels).toEqual([...levels].sort());
  });
});

describe('plan generation', () => {
  it('makes one workout block per session, earliest times first, on clean days', () => {
    expect(planBlocks(4, ['15:00', '10:30', '12:00'], [6, 2, 2, 9, 4, 0])).toEqual([
      { at: '10:30', label: 'The Classic 7', kind: 'workout', days: [2, 4, 6] },
      { at: '12:00', label: 'The Classic 7', kind: 'workout', days: [2, 4, 6] },
    ]);
    // The same time picked twice is one session, and the next time takes the free place.
    expect(planBlocks(2, ['09:00', '09:00', '11:00'], [1]).map((b) => b.at)).toEqual(['09:00', '11:00']);
    expect(planBlocks(5, ['08:00', '12:00', '16:00', '18:00'], [2]).map((b) => b.at)).toEqual(['08:00', '12:00', '16:00']);
  });

  it('counts calendar days to the next test, across midnight and past it', () => {
    const last = new Date(2026, 2, 1, 23, 30);
    expect(daysUntilRetest(last, new Date(2026, 2, 2, 0, 10))).toBe(27);
    expect(daysUntilRetest(last, new Date(2026, 3, 5))).toBe(-7);
    expect(daysUntilRetest(undefined, new Date())).toBeUndefined();
    expect(daysUntilRetest(new Date('nonsense'), new Date())).toBeUndefined();
  });
});

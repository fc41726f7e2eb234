import { describe, expect, it } from 'vitest';

import { daysUntilRetest, level, planBlocks, prescription, timeText } from '../src/retest';

describe('retest scoring', () => {
  it('places results on levels 1 to 5', () => {
    expect(level({ pushups: 0, squats: 0, plankSeconds: 0 })).toBe(1);
    expect(level({ pushups: 12, squats: 25, plankSeconds: 45 })).toBe(3);
    expect(level({ pushups: 20, squats: 35, plankSeconds: 75 })).toBe(4);
    expect(level({ pushups: 60, squats: 80, plankSeconds: 300 })).toBe(5);
    // More of anything never lowers the level.
    let previous = 0;
    for (let n = 0; n <= 60; n += 5) {
      const l = level({ pushups: n, squats: n, plankSeconds: n * 2 });
      expect(l).toBeGreaterThanOrEqual(previous);
      previous = l;
    }
  });
});

describe('plan generation', () => {
  it('makes one workout block per session, earliest times first, on clean days', () => {
    expect(prescription(4)).toEqual({ circuitId: 'classic-7', sessionsPerDay: 2 });
    const blocks = planBlocks(4, ['15:00', '10:30', '12:00'], [6, 2, 2, 9, 4, 0]);
    expect(blocks).toEqual([
      { at: '10:30', label: 'The Classic 7', kind: 'workout', days: [2, 4, 6] },
      { at: '12:00', label: 'The Classic 7', kind: 'workout', days: [2, 4, 6] },
    ]);
    expect(planBlocks(1, ['09:00', '09:00'], [1])).toEqual([{ at: '09:00', label: 'Desk Reset', kind: 'workout', days: [1] }]);
    expect(planBlocks(5, ['08:00', '12:00', '16:00', '18:00'], [2]).map((b) => b.at)).toEqual(['08:00', '12:00', '16:00']);
  });

  it('formats minutes as HH:MM and counts down to the next test', () => {
    expect(timeText(545)).toBe('09:05');
    expect(timeText(1440 + 5)).toBe('00:05');
    const last = new Date(2026, 2, 1, 23, 30);
    expect(daysUntilRetest(last, new Date(2026, 2, 2, 0, 10))).toBe(27);
    expect(daysUntilRetest(last, new Date(2026, 2, 29, 8))).toBe(0);
    expect(daysUntilRetest(last, new Date(2026, 3, 5))).toBe(-7);
    expect(daysUntilRetest(undefined, new Date())).toBeUndefined();
    expect(daysUntilRetest(new Date('nonsense'), new Date())).toBeUndefined();
  });
});

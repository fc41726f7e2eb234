import { describe, expect, it } from 'vitest';

import { heatmap, summarise } from '../src/history';
import type { PromiseRecord } from '../src/native';

const rec = (date: string, outcome: 'tovin' | 'broken', extra: Partial<PromiseRecord> = {}): PromiseRecord => ({
  date, outcome, exercise: 'squat', reps: 10, cleanReps: 10, ...extra,
});

describe('summary', () => {
  it('matches the shell ledger: streak since the newest break, best run anywhere', () => {
    expect(summarise([])).toMatchObject({ tovin: 0, broken: 0, streak: 0, best: 0 });
    const records = [
      rec('2026-03-01T09:00:00Z', 'tovin'),
      rec('2026-03-02T09:00:00Z', 'tovin'),
      rec('2026-03-03T09:00:00Z', 'tovin'),
      rec('2026-03-04T09:00:00Z', 'broken', { reason: "Didn't feel like it" }),
      rec('2026-03-05T09:00:00Z', 'tovin', { attested: true }),
    ];
    // Order of arrival does not matter; dates do.
    const s = summarise([...records].reverse());
    expect(s).toMatchObject({ tovin: 4, broken: 1, attested: 1, streak: 1, best: 3 });
    expect(s.reasons).toEqual([{ reason: "Didn't feel like it", count: 1 }]);
    expect(summarise([rec('2026-03-01T09:00:00Z', 'tovin'), rec('2026-03-02T09:00:00Z', 'broken')]).streak).toBe(0);
  });

  it('tallies broken promises without a reason as such', () => {
    const s = summarise([rec('2026-03-01T09:00:00Z', 'broken'), rec('2026-03-02T09:00:00Z', 'broken', { reason: 'Genuinely urgent' }),
      rec('2026-03-03T09:00:00Z', 'broken', { reason: 'Genuinely urgent' })]);
    expect(s.reasons).toEqual([{ reason: 'Genuinely urgent', count: 2 }, { reason: 'No reason given', count: 1 }]);
  });
});

describe('heatmap', () => {
  it('lays out whole Monday-to-Sunday weeks ending with this week, and counts each local day', () => {
    const today = new Date(2026, 2, 4, 15, 0); // Wednesday 4 March 2026, local time
    const grid = heatmap(
      [rec(new Date(2026, 2, 2, 9).toISOString(), 'tovin'), rec(new Date(2026, 2, 2, 15).toISOString(), 'tovin'),
        rec(new Date(2026, 2, 3, 9).toISOString(), 'broken'), rec('garbage', 'tovin')],
      today,
      3,
    );
    expect(grid).toHaveLength(3);
    expect(grid.every((w) => w.length === 7)).toBe(true);
    const thisWeek = grid[2];
    expect(thisWeek[0]).toMatchObject({ day: '2026-03-02', held: 2, broken: 0, future: false });
    expect(thisWeek[1]).toMatchObject({ day: '2026-03-03', held: 0, broken: 1 });
    expect(thisWeek[2]).toMatchObject({ day: '2026-03-04', future: false });
    expect(thisWeek[3]).toMatchObject({ day: '2026-03-05', future: true });
    expect(grid[0][0].day).toBe('2026-02-16');
  });
});

import { describe, expect, it } from 'vitest';

import { heatmap, summarise } from '../src/history';
import type { PromiseRecord } from '../src/native';

const rec = (date: string, outcome: 'tovin' | 'broken', extra: Partial<PromiseRecord> = {}): PromiseRecord => ({
  date, outcome, exercise: 'squat', reps: 10, cleanReps: 10, ...extra,
});

describe('summary', () => {
  it('matches the shell ledger: streak since the newest break, best run anywhere, reasons by count', () => {
    expect(summarise([])).toMatchObject({ tovin: 0, broken: 0, streak: 0, best: 0 });
    const records = [
      rec('2026-03-01T09:00:00Z', 'tovin'),
      rec('2026-03-02T09:00:00Z', 'tovin'),
      rec('2026-03-03T09:00:00Z', 'broken'),
      rec('2026-03-04T09:00:00Z', 'tovin'),
      rec('2026-03-05T09:00:00Z', 'broken', { reason: 'Genuinely urgent' }),
      rec('2026-03-06T09:00:00Z', 'broken', { reason: 'Genuinely urgent' }),
      rec('2026-03-07T09:00:00Z', 'tovin', { attested: true }),
    ];
    // Order of arrival does not matter; dates do.
    const s = summarise([...records].reverse());
    expect(s).toMatchObject({ tovin: 4, broken: 3, attested: 1, streak: 1, best: 2 });
    expect(s.reasons).toEqual([{ reason: 'Genuinely urgent', count: 2 }, { reason: 'No reason given', count: 1 }]);
    expect(summarise(records.slice(0, 3)).streak).toBe(0);
  });
});

describe('heatmap', () => {
  it('lays out whole Monday-to-Sunday weeks ending with this week, and counts each local day', () => {
    const today = new Date(2026, 2, 4, 15, 0); // Wednesday 4 March 2026, local time
    const at = (day: number, hour: number) => new Date(2026, 2, day, hour).toISOString();
    const records = [rec(at(2, 9), 'tovin'), rec(at(2, 15), 'tovin'), rec(at(3, 9), 'broken')];
    const grid = heatmap(records, today, 3);
    expect(grid.map((w) => w.length)).toEqual([7, 7, 7]);
    expect(grid[0][0].day).toBe('2026-02-16');
    expect(grid[2].slice(0, 4)).toEqual([
      { day: '2026-03-02', held: 2, broken: 0, future: false },
      { day: '2026-03-03', held: 0, broken: 1, future: false },
      { day: '2026-03-04', held: 0, broken: 0, future: false },
      { day: '2026-03-05', held: 0, broken: 0, future: true },
    ]);
  });
});

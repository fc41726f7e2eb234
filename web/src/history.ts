// The promise history the shell hands over, turned into what the setup screen shows: streaks,
// counts, reasons and a calendar heatmap of honoured and broken promises.

import type { PromiseRecord } from './native';

export interface Summary {
  tovin: number;
  broken: number;
  attested: number;
  streak: number;
  best: number;
  reasons: { reason: string; count: number }[];
}

function byDate(records: PromiseRecord[]): PromiseRecord[] {
  return [...records].sort((a, b) => Date.parse(a.date) - Date.parse(b.date));
}

/** The same arithmetic as the shell's ledger: streak since the newest break, best run anywhere. */
export function summarise(records: PromiseRecord[]): Summary {
  const sorted = byDate(records);
  let run = 0;
  let best = 0;
  const reasons = new Map<string, number>();
  for (const r of sorted) {
    run = r.outcome === 'tovin' ? run + 1 : 0;
    best = Math.max(best, run);
    if (r.outcome === 'broken') {
      const why = r.reason ?? 'No reason given';
      reasons.set(why, (reasons.get(why) ?? 0) + 1);
    }
  }
  const tovin = sorted.filter((r) => r.outcome === 'tovin').length;
  return {
    tovin,
    broken: sorted.length - tovin,
    attested: sorted.filter((r) => r.outcome === 'tovin' && r.attested === true).length,
    streak: run,
    best,
    reasons: [...reasons].map(([reason, count]) => ({ reason, count })).sort((a, b) => b.count - a.count),
  };
}

export interface DayCell {
  /** Local date, YYYY-MM-DD. */
  day: string;
  held: number;
  broken: number;
  future: boolean;
}

function localDay(d: Date): string {
  const m = `${d.getMonth() + 1}`.padStart(2, '0');
  const day = `${d.getDate()}`.padStart(2, '0');
  return `${d.getFullYear()}-${m}-${day}`;
}

/**
 * Weeks of days ending with the week that holds `today`, oldest first; each week runs Monday to
 * Sunday, as a calendar heatmap reads. Days after today are marked future.
 */
export function heatmap(records: PromiseRecord[], today: Date, weeks = 12): DayCell[][] {
  const counts = new Map<string, { held: number; broken: number }>();
  for (const r of records) {
    const t = Date.parse(r.date);
    if (Number.isNaN(t)) continue;
    const key = localDay(new Date(t));
    const c = counts.get(key) ?? { held: 0, broken: 0 };
    if (r.outcome === 'tovin') c.held++;
    else c.broken++;
    counts.set(key, c);
  }
  const end = new Date(today.getFullYear(), today.getMonth(), today.getDate());
  const mondayOffset = (end.getDay() + 6) % 7;
  const start = new Date(end.getFullYear(), end.getMonth(), end.getDate() - mondayOffset - 7 * (weeks - 1));
  const grid: DayCell[][] = [];
  for (let w = 0; w < weeks; w++) {
    const week: DayCell[] = [];
    for (let d = 0; d < 7; d++) {
      const date = new Date(start.getFullYear(), start.getMonth(), start.getDate() + w * 7 + d);
      const key = localDay(date);
      const c = counts.get(key) ?? { held: 0, broken: 0 };
      week.push({ day: key, held: c.held, broken: c.broken, future: date > end });
    }
    grid.push(week);
  }
  return grid;
}

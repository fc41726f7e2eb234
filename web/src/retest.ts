// The fitness retest: three short tests, a level from their results, and a weekly plan of
// workout blocks at the person's chosen times, one block per planned session.

import type { Block } from './native';
import { presets } from './catalogue';

export interface RetestResults {
  pushups: number; // in 60 seconds
  squats: number; // in 60 seconds
  plankSeconds: number;
}

export const retestEveryDays = 28;
export const lastRetestKey = 'tovin.lastRetest';

/** Level 1 (start gently) to 5 (strong): each test scores 0 to 4 against simple bands. */
export function level(results: RetestResults): number {
  const band = (value: number, steps: number[]) => steps.filter((s) => value >= s).length;
  const score =
    band(results.pushups, [5, 12, 20, 30]) + band(results.squats, [15, 25, 35, 45]) +
    band(results.plankSeconds, [20, 45, 75, 120]);
  return Math.min(5, 1 + Math.floor(score / 3));
}

/** The circuit and number of daily sessions suited to a level. */
export function prescription(lvl: number): { circuitId: string; sessionsPerDay: number } {
  if (lvl <= 1) return { circuitId: 'desk-reset', sessionsPerDay: 1 };
  if (lvl === 2) return { circuitId: 'two-minute-spark', sessionsPerDay: 2 };
  if (lvl === 3) return { circuitId: 'legs-at-the-desk', sessionsPerDay: 2 };
  if (lvl === 4) return { circuitId: 'classic-7', sessionsPerDay: 2 };
  return { circuitId: 'classic-7', sessionsPerDay: 3 };
}

/**
 * One workout block per session: at each chosen time (as many as the level asks for, the
 * earliest first), on the chosen days, labelled with the prescribed circuit's name.
 */
export function planBlocks(lvl: number, times: string[], days: number[]): Block[] {
  const { circuitId, sessionsPerDay } = prescription(lvl);
  const name = presets.find((p) => p.id === circuitId)?.name ?? 'Workout';
  const sortedDays = [...new Set(days.filter((d) => Number.isInteger(d) && d >= 1 && d <= 7))].sort();
  const chosen = [...new Set(times)].sort().slice(0, sessionsPerDay);
  return chosen.map((at) => ({ at, label: name, kind: 'workout', days: sortedDays }));
}

/** Days left until the next retest is owed (0 or below: due now). */
export function daysUntilRetest(lastTest: Date | undefined, today: Date, every = retestEveryDays): number | undefined {
  if (!lastTest || Number.isNaN(lastTest.getTime())) return undefined;
  const startOf = (d: Date) => Date.UTC(d.getFullYear(), d.getMonth(), d.getDate());
  const elapsed = Math.round((startOf(today) - startOf(lastTest)) / 86_400_000);
  return every - elapsed;
}
